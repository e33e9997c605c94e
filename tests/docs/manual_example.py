#!/usr/bin/env python3
"""Writes the program that a manual page shows into a file: the first literal display of its section
EXAMPLES. Arguments: the page, the file."""

import sys
from pathlib import Path

from run_examples import manual_blocks

_, _, program, _ = next(manual_blocks(Path(sys.argv[1]).read_text().splitlines()))
Path(sys.argv[2]).write_text("\n".join(program) + "\n")
