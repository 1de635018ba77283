"""Where the modules under test are."""
import sys
from pathlib import Path

sys.path[:0] = [str(Path(__file__).resolve().parents[2] / part) for part in ("sim", "platform/sim")]
