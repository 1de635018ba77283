// Facts: what a marker or a dotted word has to tell, in a box beside it. A pointer over it shows the box, a finger, a click or
// the keyboard keeps it until something else is touched.

const fact = element("div");
fact.id = "fact";
fact.setAttribute("role", "status");
fact.hidden = true;
document.body.append(fact);
let teller = null, kept = false;

const tellerAt = target => target instanceof Element ? target.closest("[data-fact], a.term") : null;

function factLines(one) {
  if (one.dataset.fact !== undefined) return one.dataset.fact.split("\n").map(line => element("p", "", line));
  const entry = document.getElementById(one.getAttribute("href").slice(1));
  return [element("b", "", entry.querySelector("dt").textContent), element("p", "", entry.querySelector("dd").textContent)];
}

function showFact(one, keep) {
  teller = one;
  kept = keep;
  fact.replaceChildren(...factLines(one));
  if (one.dataset.row) {
    const link = element("a", "", "in the list");
    link.href = "#" + one.dataset.row;
    fact.append(link);
  }
  fact.hidden = false;
  const place = one.getBoundingClientRect(), room = root.clientWidth - fact.offsetWidth - 8;
  const above = place.top - fact.offsetHeight - 6;
  fact.style.left = scrollX + Math.max(8, Math.min(place.left, room)) + "px";
  fact.style.top = scrollY + (above >= 8 ? above : place.bottom + 6) + "px";
}

function hideFact() {
  teller = null;
  kept = false;
  fact.hidden = true;
}

// What a marker belonged to may have been drawn anew.
function forgetFact() {
  if (teller && !teller.isConnected) hideFact();
}

document.addEventListener("pointerover", event => {
  const one = tellerAt(event.target);
  if (event.pointerType === "mouse" && one && !kept) showFact(one, false);
});
document.addEventListener("pointerout", event => {
  if (event.pointerType === "mouse" && !kept && tellerAt(event.target)) hideFact();
});
document.addEventListener("click", event => {
  const one = tellerAt(event.target);
  if (one) {
    event.preventDefault();
    if (kept && one === teller) hideFact(); else showFact(one, true);
  } else if (!fact.contains(event.target) || event.target.closest("a")) {
    hideFact();
  }
});
document.addEventListener("keydown", event => {
  if (event.key === "Escape") hideFact();
});
