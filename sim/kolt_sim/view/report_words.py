"""The words of the reports: what each means, and the links that make them tell it where they stand."""
import re
from html import escape

# In the order in which a page lists them: the word, other forms of it, what it means. A page has those that it uses, and
# those that their explanations use.
_WORDS = [
    ("demand", "", "What all streams together would carry if nothing held them back."),
    ("goodput", "", "What arrives of the data that somebody wanted, without acknowledgements."),
    ("with the daemon", "", "The node as kolt runs it, unmodified."),
    ("without the daemon", "", "The same home at the same time on a plain bridge: it floods on every link, and all "
     "traffic takes the cable while there is one, otherwise one link that the scenario names. A storm is counted, but costs "
     "it no goodput here."),
    ("ideal", "ideal placement", "All links that the daemon may use as one pool that is shared fairly; a stream can be split "
     "there. No placement carries more."),
    ("best link", "best link alone", "All traffic on the one link that carries most at that moment, changed at no cost. With "
     "one link there is no storm."),
    ("flow hash", "hash", "Each stream on the link that a hash of its addresses and ports names, all links with equal chances. "
     "It prevents no storm."),
    ("weighted hash", "weighted flow hash", "A flow hash with chances by what the links carry at that moment."),
    ("calm minutes", "", "Minutes in which nothing went back to a path that it had left, neither stream nor client."),
    ("client", "clients", "A device whose streams the node carries."),
    ("worst client", "worst client's share", "The client that got the smallest part of what it wanted."),
    ("stream", "streams", "The packets between two devices with the same addresses, ports and protocol: a film, a call, a "
     "download."),
    ("stream move", "stream moves", "The daemon takes a stream from one path to another by pointing its HA entry there."),
    ("bounce", "bounces", "A move of a stream back to a path that an earlier move took it away from."),
    ("path change", "path changes", "A stream leaves by another path than before: by a move, or because of a flush, a new HD "
     "entry or a changed link."),
    ("overload", "overloads", "A time in which the goodput is below 90 % of the ideal."),
    ("relief", "longest relief", "How long an overload lasts, until the goodput is back at 95 % of the ideal."),
    ("not relieved", "", "Overloads that were not over at the end."),
    ("path", "paths", "A link of the node to the rest of the mesh: Ethernet, power line, or a radio of one band."),
    ("link", "links", "A connection between two nodes: a cable, power line, or a radio of one band."),
    ("mesh", "", "The nodes of a home together, joined by links."),
    ("node", "nodes", "A router or extender: one bridge, several links, one daemon."),
    ("host", "hosts", "A device in the home, such as a computer, at one of the nodes."),
    ("rate", "mean rate", "How much a link carries when nobody else is on it."),
    ("PHY rate", "", "How fast a radio sends, as its driver says; what reaches the streams is less, by overhead and by others "
     "on the channel."),
    ("utilisation", "", "How busy a link or a radio's channel is, by anybody, in percent of the time."),
    ("air time", "", "The time in which a radio's channel is taken."),
    ("quota", "", "What the daemon may still put on a path: 100 % less its utilisation and a reserve."),
    ("high threshold", "", "Above this utilisation the daemon takes a path for overloaded, and begins to move streams."),
    ("placement", "placement of clients, placements of clients, client placements, pinned, pins",
     "Which path each client is pinned to, by its HD entry."),
    ("HD entry", "HD entries", "The bridge's note of a client's path: a stream without an HA entry goes there."),
    ("HA entry", "HA entries", "The bridge's note of one stream: by which path it leaves, and what it carries."),
    ("flush", "", "The bridge forgets a table, so that what was in it is placed anew."),
    ("broadcast", "broadcasts, flooded frames", "Frames for everybody. All links lead to the same mesh, so of a node's "
     "nonrelay ports one alone may carry them, or they come back."),
    ("broadcast port", "broadcast ports", "The nonrelay port that carries broadcast: the best of those whose link is up."),
    ("relay", "", "A port that always carries broadcast: access points, and links to extenders further down."),
    ("nonrelay", "", "A port that carries broadcast only when it is the broadcast port of its class."),
    ("class", "", "A network of its own for broadcast: 0 is the home's, 1 usually the guests'."),
    ("compatibility group", "", "Which ports belong together, as the configuration says."),
    ("couple", "", "A backhaul interface and its partner in the guests' network: one link that carries both."),
    ("need-HA", "", "A port for whose streams the bridge keeps HA entries."),
    ("work mode", "work modes", "What a node is in the mesh. RE: a range extender. FAP, AP, HAP: an access point, "
     "at the top or between."),
    ("storm", "broadcast storm, storms", "Broadcast that circles over several links, coming round again and again."),
    ("expectation", "expectations", "What the run must come to, as its scenario says."),
    ("tick", "", "The step of the model: everything is reckoned once in it."),
    ("period", "", "The daemon measures its paths and places streams once in it."),
    ("seed", "", "All that is random in a run comes of it: the same seed, the same run."),
    ("event", "events", "What happened to the home, as its scenario or topology says."),
    ("frame", "frames", "A packet on a link or a bridge."),
    ("full queue", "full queues", "A link that is asked for more than it carries lets frames wait, and drops those that find "
     "its queue full."),
    ("port", "ports", "Where a link meets the node's bridge."),
    ("topology", "", "Which nodes there are, which links join them, and which hosts they have."),
    ("link lost", "", "The part of the time in which the link was cut or lost every frame."),
    ("link down", "", "The part of the time in which the link was not there."),
    ("carried broadcast", "", "The part of the time in which this was the link for broadcast."),
]
WORDS = {word: meaning for word, _, meaning in _WORDS}
_FORMS = {form.strip().lower(): word for word, forms, _ in _WORDS for form in [word, *forms.split(",")] if form.strip()}
_ANY = re.compile(r"<[^>]*>|&\w+;|\b(" + "|".join(re.escape(form) for form in sorted(_FORMS, key=len, reverse=True))
                  + r")(?![\w-])", re.IGNORECASE)
_WHOLE = {"without": "without the daemon"}  # only where nothing else stands beside it
_LINK = re.compile(r'href="#(word-[\w-]+)"')


def anchor(word: str) -> str:
    return "word-" + re.sub(r"\W+", "-", word.lower())


def explained(text: str, besides: str = "") -> str:
    """A text that is HTML already, and the first of each of its known words, but for `besides`, a link to its meaning."""
    if text in _WHOLE:
        return _term(_WHOLE[text], text)
    seen = {besides}

    def link(found: re.Match) -> str:
        word = _FORMS[found[1].lower()] if found[1] else ""
        if not word or word in seen:
            return found[0]
        seen.add(word)
        return _term(word, found[0])
    return _ANY.sub(link, text)


def _term(word: str, text: str) -> str:
    return f'<a class="term" href="#{anchor(word)}">{text}</a>'


def section(page: str) -> str:
    """The words that a page uses, and those that explain them."""
    wanted = set(_LINK.findall(page))
    meanings = {word: explained(escape(meaning), word) for word, meaning in WORDS.items()}
    while more := {one for word, text in meanings.items() if anchor(word) in wanted for one in _LINK.findall(text)} - wanted:
        wanted |= more
    listed = "".join(f'<div id="{anchor(word)}"><dt>{escape(word)}</dt><dd>{text}</dd></div>'
                     for word, text in meanings.items() if anchor(word) in wanted)
    return (f'<dl>{listed}</dl><p class="facts">The sources of kolt have all its words in docs/glossary.md.</p>'
            if listed else "")
