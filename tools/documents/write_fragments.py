"""Writes the fragments of C++ of the pages into a folder, each under its name.

    write_fragments.py FOLDER PAGE...
"""

import os
import sys

from blocks import read_blocks


def main() -> None:
    folder, *pages = sys.argv[1:]
    os.makedirs(folder, exist_ok=True)
    names = set()
    for path in pages:
        with open(path, encoding="utf-8") as file:
            blocks = read_blocks(os.path.basename(path), file.read())
        for block in blocks:
            name = block.comment("compiled as")
            if not name:
                continue
            if name in names:
                sys.exit(str(block.fault(f"another block is compiled as {name}, too")))
            names.add(name)
            with open(os.path.join(folder, f"{name}.inc"), "w", encoding="utf-8") as file:
                file.write(f'#line {block.line + 1} "{path}"\n{block.text}')


if __name__ == "__main__":
    main()
