#!/usr/bin/env python3
"""
Reads the archives of what decides by records alone, and says what in them could reach past the records: a function that
is in none of them and not among the few that only compute or allocate, or a variable that would outlive a call.
Usage: check_purity.py NM ARCHIVE...
"""
import subprocess
import sys

# From the C library and the compiler: what works on memory that it is handed, allocates, or ends the program.
ALLOWED = {"memcpy", "memcmp", "memset", "memmove", "strlen", "strnlen", "strncmp", "malloc", "calloc", "free", "abort",
           "__memcpy_chk", "__memset_chk", "__memmove_chk", "__stack_chk_fail", "_GLOBAL_OFFSET_TABLE_"}
WRITABLE = set("DdBbGgSsCcuV")
UNDEFINED = set("Uwv")


def read(nm: str, archive: str) -> list[tuple[str, str, str]]:
    """The object, letter and name of each symbol."""
    lines = subprocess.run([nm, "-A", "-P", archive], check=True, capture_output=True, text=True).stdout.splitlines()
    symbols = []
    for line in lines:
        place, rest = line.split(": ", 1)
        name, letter, *_ = rest.split()
        symbols.append((place, letter, name))
    if not any(letter == "T" for _, letter, _ in symbols):
        sys.exit(f"{archive} defines no function: there is nothing to judge")
    return symbols


def main(nm: str, *archives: str) -> int:
    symbols = [symbol for archive in archives for symbol in read(nm, archive)]
    defined = {name for _, letter, name in symbols if letter not in UNDEFINED}
    found = [f"{place} calls {name}" for place, letter, name in symbols
             if letter in UNDEFINED and name not in defined | ALLOWED]
    found += [f"{place} keeps {name}" for place, letter, name in symbols if letter in WRITABLE]
    print("\n".join(found) or f"{len(defined)} symbols, which reach nothing but their records")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
