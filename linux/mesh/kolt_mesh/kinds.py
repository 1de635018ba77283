"""What runs in the nodes of a mesh: nothing but the kernel's bridge, its spanning tree, one link only."""
from typing import TYPE_CHECKING

from .topology import Link

if TYPE_CHECKING:
    from .lab import Lab


class Kind:
    """The kernel's bridge alone: loops are loops."""
    name = "plain"
    title = "plain bridge"
    settling = 0.0  # seconds after a link's return until nothing changes any more

    def bridge_options(self, lab: "Lab", node: str) -> str:
        """What `ip link add type bridge` gets."""
        return "stp_state 0 forward_delay 0"

    def uses(self, lab: "Lab", link: Link) -> bool:
        """Whether a link is ever up."""
        return True

    def prepare(self, lab: "Lab") -> None:
        """Starts what runs in the nodes; the ports are still down."""

    def follow(self, lab: "Lab") -> None:
        """Called now and then while traffic flows."""

    def obey(self, lab: "Lab", event: dict) -> None:
        """Does what an event says about a node; nothing where it runs nothing."""

    def close(self) -> None:
        """Ends what runs in the nodes."""


class OneLink(Kind):
    """One link to each node and nothing to fall back on."""
    name = "one-link"
    title = "one link"

    def uses(self, lab: "Lab", link: Link) -> bool:
        return link in lab.topology.spanning_links()


class SpanningTree(Kind):
    """The kernel's spanning tree, by default with its own timers. Times in seconds."""
    name = "stp"
    title = "kernel STP"

    def __init__(self, forward_delay: float = 15, hello: float = 2, max_age: float = 20) -> None:
        self.forward_delay, self.hello, self.max_age = forward_delay, hello, max_age
        self.settling = 2 * forward_delay + 2 * hello

    def bridge_options(self, lab: "Lab", node: str) -> str:
        root = node == next(iter(sorted(lab.topology.roots())), "")
        return (f"stp_state 1 forward_delay {round(100 * self.forward_delay)} hello_time {round(100 * self.hello)} "
                f"max_age {round(100 * self.max_age)} priority {4096 if root else 32768}")


class TunedSpanningTree(SpanningTree):
    """The shortest timers that the kernel takes."""
    name = "stp-tuned"
    title = "kernel STP, tuned"

    def __init__(self) -> None:
        super().__init__(forward_delay=2, hello=1, max_age=6)


KINDS = {kind.name: kind for kind in (Kind, OneLink, SpanningTree, TunedSpanningTree)}
