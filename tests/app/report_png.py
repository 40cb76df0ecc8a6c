#!/usr/bin/env python3
"""Checks a screenshot of an fmsd report: each panel's frame colour is there, and
the rows beside it hold drawn charts, not blank plots.

usage: report_png.py SHOT.png NAME=#rrggbb ... [!NAME=#rrggbb ...]
A leading ! marks a panel that must not be shown."""
import sys

import numpy as np
from PIL import Image

TOLERANCE = 10        # per channel, for the flat frame colours
FRAME_PIXELS = 1500   # a 12-pixel frame beside one chart at least
CHART_PIXELS = 400    # coloured pixels of lines, bars and bands beside the frame


def rgb(text):
    return np.array([int(text[i:i + 2], 16) for i in (1, 3, 5)], dtype=int)


def main():
    image = np.asarray(Image.open(sys.argv[1]).convert("RGB")).astype(int)
    specs = [a.split("=", 1) for a in sys.argv[2:]]
    colours = {name.lstrip("!"): rgb(colour) for name, colour in specs}
    # Coloured pixels: clearly not grey, white or black (text and axes are grey).
    chromatic = image.max(axis=2) - image.min(axis=2) > 50
    frames = np.zeros(chromatic.shape, dtype=bool)
    masks = {}
    for name, colour in colours.items():
        masks[name] = (np.abs(image - colour) <= TOLERANCE).all(axis=2)
        frames |= masks[name]
    failures = []
    for name, _ in specs:
        absent = name.startswith("!")
        name = name.lstrip("!")
        mask = masks[name]
        count = int(mask.sum())
        if absent:
            if count >= FRAME_PIXELS:
                failures.append(f"{name}: shown, but it should not be ({count} frame pixels)")
            continue
        if count < FRAME_PIXELS:
            failures.append(f"{name}: frame not found ({count} pixels of its colour)")
            continue
        rows = np.nonzero(mask.any(axis=1))[0]
        right = np.nonzero(mask.any(axis=0))[0].max() + 1
        region = chromatic[rows.min():rows.max() + 1, right:] & ~frames[rows.min():rows.max() + 1, right:]
        drawn = int(region.sum())
        print(f"{name}: rows {rows.min()}-{rows.max()}, {drawn} chart pixels")
        if drawn < CHART_PIXELS:
            failures.append(f"{name}: its charts look blank ({drawn} coloured pixels)")
    for f in failures:
        print("FAIL:", f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
