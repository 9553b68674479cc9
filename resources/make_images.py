#!/usr/bin/python3
"""Draws the program's images: crypt.png (application icon) and
loaderAnimated.gif (busy animation), with loaderAnimated@2x.gif for screens
at twice the density and loaderAnimatedDark(@2x).gif for dark palettes, and
the desktop's icons in packaging/icons
(desktop_icons.py). Run with Debian's python3 (needs PIL):

    /usr/bin/python3 resources/make_images.py

Everything is drawn at a multiple of the final size and scaled down, which
gives smooth edges without relying on PIL's (absent) anti-aliased shapes.
"""
import math
import os

from PIL import Image, ImageDraw

import desktop_icons

HERE = os.path.dirname(os.path.abspath(__file__))

ICON_SIZE = 256
ICON_SCALE = 4

LOADER_W, LOADER_H = 229, 25
LOADER_SCALE = 4
LOADER_FRAMES = 30
LOADER_FRAME_MS = 40
LOADER_PILLS = 12


def lerp(a, b, t):
    return tuple(int(round(x + (y - x) * t)) for x, y in zip(a, b))


def vertical_gradient(size, top, bottom):
    w, h = size
    grad = Image.new("RGBA", size)
    draw = ImageDraw.Draw(grad)
    for y in range(h):
        draw.line([(0, y), (w, y)], fill=lerp(top, bottom, y / (h - 1)) + (255,))
    return grad


def draw_icon():
    s = ICON_SIZE * ICON_SCALE
    u = s / 64.0  # design grid: 64 x 64 units

    # Rounded tile with a blue-to-teal gradient.
    mask = Image.new("L", (s, s), 0)
    ImageDraw.Draw(mask).rounded_rectangle([2 * u, 2 * u, 62 * u, 62 * u], radius=13 * u, fill=255)
    tile = vertical_gradient((s, s), (38, 110, 196), (16, 62, 120))
    icon = Image.new("RGBA", (s, s), (0, 0, 0, 0))
    icon.paste(tile, (0, 0), mask)

    draw = ImageDraw.Draw(icon)
    # A faint highlight over the upper half gives the tile some depth.
    shine = Image.new("L", (s, s), 0)
    ImageDraw.Draw(shine).rounded_rectangle([4 * u, 4 * u, 60 * u, 30 * u], radius=11 * u, fill=38)
    icon.paste(Image.new("RGBA", (s, s), (255, 255, 255, 255)), (0, 0), shine)

    white = (250, 252, 255, 255)
    # Shackle: a thick arc standing on the lock body.
    draw.arc([19 * u, 9 * u, 45 * u, 37 * u], start=180, end=360, fill=white, width=int(6 * u))
    draw.rectangle([19 * u, 22 * u, 25 * u, 31 * u], fill=white)
    draw.rectangle([39 * u, 22 * u, 45 * u, 31 * u], fill=white)
    # Body.
    draw.rounded_rectangle([13 * u, 29 * u, 51 * u, 56 * u], radius=6 * u, fill=white)
    # Keyhole in the tile's dark blue.
    hole = (22, 72, 138, 255)
    draw.ellipse([28.5 * u, 36 * u, 35.5 * u, 43 * u], fill=hole)
    draw.polygon([(30 * u, 41 * u), (34 * u, 41 * u), (35 * u, 50 * u), (29 * u, 50 * u)], fill=hole)

    return icon.resize((ICON_SIZE, ICON_SIZE), Image.LANCZOS)


# Colours of the animation: around it, its box, the box's edge, a pill at
# rest and a lit pill. The dark set suits dark desktop palettes.
LOADER_LIGHT = ((239, 239, 239), (226, 231, 237), (176, 186, 198), (196, 208, 222), (30, 108, 200))
LOADER_DARK = ((49, 54, 59), (35, 38, 41), (84, 92, 100), (62, 70, 80), (61, 174, 233))


def loader_frame(phase, density=1, colours=LOADER_LIGHT):
    """One frame at density times the logical 229 x 25 size."""
    around, box, edge, idle, lit = colours
    s = LOADER_SCALE * density
    w, h = LOADER_W * s, LOADER_H * s
    frame = Image.new("RGB", (w, h), around)
    draw = ImageDraw.Draw(frame)
    draw.rounded_rectangle([0, 0, w - 1, h - 1], radius=6 * s, fill=box, outline=edge, width=s)

    gap = 4 * s
    inner = w - 2 * 6 * s
    pill_w = (inner - gap * (LOADER_PILLS - 1)) / LOADER_PILLS
    for i in range(LOADER_PILLS):
        # A wave of light travels left to right; its distance to each pill is
        # taken around the loop so that the last frame joins the first.
        pos = i / LOADER_PILLS
        d = (phase - pos) % 1.0
        glow = math.exp(-((d * 4.0) ** 2)) if d < 0.5 else math.exp(-(((1 - d) * 9.0) ** 2))
        x0 = 6 * s + i * (pill_w + gap)
        draw.rounded_rectangle([x0, 7 * s, x0 + pill_w, h - 7 * s], radius=3 * s,
                               fill=lerp(idle, lit, glow))
    return frame.resize((LOADER_W * density, LOADER_H * density), Image.LANCZOS)


def draw_loader(density=1, colours=LOADER_LIGHT):
    frames = [loader_frame(k / LOADER_FRAMES, density, colours) for k in range(LOADER_FRAMES)]
    # One shared palette keeps colours steady from frame to frame.
    w, h = frames[0].size
    strip = Image.new("RGB", (w, h * LOADER_FRAMES))
    for k, f in enumerate(frames):
        strip.paste(f, (0, k * h))
    palette = strip.quantize(colors=128, method=Image.MEDIANCUT)
    return [f.quantize(palette=palette, dither=Image.NONE) for f in frames]


def save_loader(frames, name):
    frames[0].save(os.path.join(HERE, name), save_all=True, append_images=frames[1:],
                   duration=LOADER_FRAME_MS, loop=0, optimize=False, disposal=1)


def make_2x_images():
    """The images drawn again at twice the density, for high-DPI screens."""
    save_loader(draw_loader(density=2), "loaderAnimated@2x.gif")


def make_dark_images():
    """The animation in the colours of a dark desktop palette, at both densities."""
    save_loader(draw_loader(colours=LOADER_DARK), "loaderAnimatedDark.gif")
    save_loader(draw_loader(density=2, colours=LOADER_DARK), "loaderAnimatedDark@2x.gif")


def main():
    icon = draw_icon()
    icon.save(os.path.join(HERE, "crypt.png"), optimize=True)

    save_loader(draw_loader(), "loaderAnimated.gif")
    make_2x_images()
    make_dark_images()

    desktop_icons.write_desktop_icons(os.path.join(HERE, "..", "packaging", "icons", "hicolor"))


if __name__ == "__main__":
    main()
