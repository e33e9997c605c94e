#!/usr/bin/env python3
"""Draws a terminal's screen, as "tmux capture-pane -e" prints it, into a PNG file. Arguments: the
screen, the picture."""

import re
import sys
from pathlib import Path

from PIL import Image, ImageDraw, ImageFont

FONTS = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono"
SIZE = 13
FOREGROUND = (208, 208, 208)
BACKGROUND = (18, 18, 18)
BASIC = [(0, 0, 0), (205, 49, 49), (13, 188, 121), (229, 229, 16), (36, 114, 200), (188, 63, 188),
         (17, 168, 205), (229, 229, 229), (102, 102, 102), (241, 76, 76), (35, 209, 139),
         (245, 245, 67), (59, 142, 234), (214, 112, 214), (41, 184, 219), (255, 255, 255)]


def indexed(number):
    if number < 16:
        return BASIC[number]
    if number >= 232:
        return (8 + 10 * (number - 232),) * 3
    steps = (0, 95, 135, 175, 215, 255)
    number -= 16
    return steps[number // 36], steps[number // 6 % 6], steps[number % 6]


class Style:
    def __init__(self):
        self.reset()

    def reset(self):
        self.foreground, self.background = None, None
        self.bold = self.reverse = self.underline = False

    def apply(self, codes):
        codes = [int(code or 0) for code in re.split("[;:]", codes)]
        while codes:
            code = codes.pop(0)
            if code == 0:
                self.reset()
            elif code in (1, 22):
                self.bold = code == 1
            elif code in (4, 24):
                self.underline = code == 4
            elif code in (7, 27):
                self.reverse = code == 7
            elif code in (38, 48):
                color = indexed(codes[1]) if codes[0] == 5 else tuple(codes[1:4])
                del codes[:2 if codes[0] == 5 else 4]
                if code == 38:
                    self.foreground = color
                else:
                    self.background = color
            elif 30 <= code <= 37 or 90 <= code <= 97:
                self.foreground = BASIC[code - 30 if code < 90 else code - 82]
            elif 40 <= code <= 47 or 100 <= code <= 107:
                self.background = BASIC[code - 40 if code < 100 else code - 92]
            elif code == 39:
                self.foreground = None
            elif code == 49:
                self.background = None

    def colors(self):
        pair = self.foreground or FOREGROUND, self.background or BACKGROUND
        return pair[::-1] if self.reverse else pair


def main():
    rows = Path(sys.argv[1]).read_text().rstrip("\n").split("\n")
    plain = ImageFont.truetype(FONTS + ".ttf", SIZE)
    bold = ImageFont.truetype(FONTS + "-Bold.ttf", SIZE)
    width, height = round(plain.getlength("M")), SIZE + 4
    columns = max(len(re.sub(r"\x1b\[[\d;:]*m|\x0e|\x0f|\x1b\(.", "", row)) for row in rows)
    image = Image.new("RGB", (columns * width, len(rows) * height), BACKGROUND)
    draw = ImageDraw.Draw(image)
    style = Style()
    for y, row in enumerate(rows):
        x = 0
        for codes, character in re.findall(r"\x1b\[([\d;:]*)m|(?:\x1b\(.|[\x0e\x0f])|(.)", row):
            if not character:
                style.apply(codes)
                continue
            foreground, background = style.colors()
            left, top = x * width, y * height
            draw.rectangle((left, top, left + width - 1, top + height - 1), background)
            draw.text((left, top + 1), character, foreground, bold if style.bold else plain)
            if style.underline:
                draw.line((left, top + height - 2, left + width - 1, top + height - 2), foreground)
            x += 1
    image.quantize(64).save(sys.argv[2], optimize=True)


if __name__ == "__main__":
    main()
