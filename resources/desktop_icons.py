"""The desktop's icons: the application icon and the envelope file type's
icon, in the hicolor theme's fixed sizes. Called by make_images.py.

Each size is drawn on its own pixel grid rather than scaled down from one big
picture: every straight edge is snapped to whole pixels (so it stays crisp),
strokes keep a minimum width, and details that would turn to mush at small
sizes are left out. Only curves are smoothed, by drawing at SUPER times the
size and averaging each SUPER x SUPER block into one pixel.
"""
import os

from PIL import Image, ImageDraw

SIZES = (16, 22, 24, 32, 48, 64, 128, 256)
APP_ICON_NAME = "example.nimbra.crypt"
ENVELOPE_ICON_NAME = "application-x-nimbra-envelope"
SUPER = 8

TILE_TOP, TILE_BOTTOM = (38, 110, 196), (16, 62, 120)
WHITE = (250, 252, 255, 255)
KEYHOLE = (22, 72, 138, 255)
PAPER = (246, 247, 250, 255)
PAPER_EDGE = (112, 128, 150, 255)
FLAP = (214, 221, 231, 255)


def px(n, units):
    """A length of the 64-unit design grid in whole pixels of an n-pixel icon."""
    return int(round(n * units / 64.0))


def centred(n, width):
    """Whole-pixel span of about `width` pixels centred in n pixels; the width
    takes n's parity so that both margins are equal."""
    width = int(round(width))
    if (n - width) % 2:
        width += 1
    return (n - width) // 2, (n + width) // 2


def canvas(n):
    """A transparent picture SUPER times the size and a drawing function that
    takes rectangles in pixels of the final size."""
    big = Image.new("RGBA", (n * SUPER, n * SUPER), (0, 0, 0, 0))
    return big, ImageDraw.Draw(big)


def scaled(box):
    # The right and bottom edges are exclusive: a box (0, 0, 2, 2) covers
    # exactly four pixels of the final picture.
    x0, y0, x1, y1 = box
    return [x0 * SUPER, y0 * SUPER, x1 * SUPER - 1, y1 * SUPER - 1]


def finish(big, n):
    return big.resize((n, n), Image.BOX)


def gradient_tile(n, box, radius):
    s = n * SUPER
    mask = Image.new("L", (s, s), 0)
    ImageDraw.Draw(mask).rounded_rectangle(scaled(box), radius=radius * SUPER, fill=255)
    tile = Image.new("RGBA", (s, s))
    draw = ImageDraw.Draw(tile)
    y0, y1 = box[1] * SUPER, box[3] * SUPER
    for y in range(s):
        t = min(1.0, max(0.0, (y - y0) / max(1, y1 - y0 - 1)))
        colour = tuple(int(round(a + (b - a) * t)) for a, b in zip(TILE_TOP, TILE_BOTTOM))
        draw.line([(0, y), (s, y)], fill=colour + (255,))
    return tile, mask


def draw_padlock(draw, n, big):
    """The white padlock of the application icon, placed on an n-pixel tile.
    Below 16 pixels (the envelope icon's corner badge) strokes may be one
    pixel wide and the keyhole goes."""
    least = 1 if n < 16 else 2
    stroke = max(least, px(n, 6))
    bx0, bx1 = centred(n, n * 38 / 64.0)
    by0, by1 = px(n, 29), n - max(least, px(n, 8))
    # The shackle's hole stays at least two strokes wide, or it closes up.
    sx0, sx1 = centred(n, max(n * 26 / 64.0, 4 * stroke))
    sy0 = max(1, px(n, 9))
    # The shackle is a ring cut off by the body: its outline minus its hole.
    ring = Image.new("L", big.size, 0)
    rd = ImageDraw.Draw(ring)
    outer = (sx0, sy0, sx1, by0 + stroke)
    inner = (sx0 + stroke, sy0 + stroke, sx1 - stroke, by0 + 2 * stroke)
    rd.rounded_rectangle(scaled(outer), radius=(sx1 - sx0) * SUPER // 2, fill=255)
    rd.rounded_rectangle(scaled(inner), radius=(sx1 - sx0 - 2 * stroke) * SUPER // 2, fill=0)
    big.paste(Image.new("RGBA", big.size, WHITE), (0, 0), ring)
    draw.rounded_rectangle(scaled((bx0, by0, bx1, by1)), radius=max(1, px(n, 6)) * SUPER, fill=WHITE)
    if by1 - by0 >= 6:
        draw_keyhole(draw, n, by0, by1)


def draw_keyhole(draw, n, by0, by1):
    height = by1 - by0
    if n < 32:
        # A round hole would be a single grey pixel: a straight slot reads better.
        kx0, kx1 = centred(n, max(2, px(n, 4)))
        top = by0 + max(2, height // 3)
        draw.rectangle(scaled((kx0, top, kx1, by1 - max(2, height // 4))), fill=KEYHOLE)
        return
    hx0, hx1 = centred(n, n * 7 / 64.0)
    hy0 = by0 + px(n, 7)
    draw.ellipse(scaled((hx0, hy0, hx1, hy0 + hx1 - hx0)), fill=KEYHOLE)
    lx0, lx1 = centred(n, n * 4 / 64.0)
    wide0, wide1 = centred(n, n * 6 / 64.0)
    bottom = by1 - px(n, 6)
    mid = hy0 + (hx1 - hx0) // 2
    draw.polygon([(lx0 * SUPER, mid * SUPER), (lx1 * SUPER, mid * SUPER),
                  (wide1 * SUPER, bottom * SUPER), (wide0 * SUPER, bottom * SUPER)], fill=KEYHOLE)


def draw_app_icon(n):
    """The application icon: a white padlock on a rounded blue tile."""
    big, draw = canvas(n)
    margin = px(n, 2)
    box = (margin, margin, n - margin, n - margin)
    tile, mask = gradient_tile(n, box, max(2, px(n, 13)))
    big.paste(tile, (0, 0), mask)
    if n >= 48:
        # A faint highlight over the upper half; below 48 pixels it only blurs.
        shine = Image.new("L", big.size, 0)
        inset = px(n, 4)
        ImageDraw.Draw(shine).rounded_rectangle(scaled((inset, inset, n - inset, px(n, 30))),
                                                radius=px(n, 11) * SUPER, fill=38)
        big.paste(Image.new("RGBA", big.size, (255, 255, 255, 255)), (0, 0), shine)
    draw_padlock(draw, n, big)
    return finish(big, n)


def draw_envelope_icon(n):
    """The envelope file type: a sealed paper envelope with the application's
    padlock tile in its lower right corner."""
    big, draw = canvas(n)
    edge = max(1, n // 48)
    x0, x1 = centred(n, n * 60 / 64.0)
    y0, y1 = px(n, 10), px(n, 50)
    draw.rectangle(scaled((x0, y0, x1, y1)), fill=PAPER_EDGE)
    draw.rectangle(scaled((x0 + edge, y0 + edge, x1 - edge, y1 - edge)), fill=PAPER)
    # The flap: a triangle from the top corners to just below the middle.
    tip = (n * SUPER // 2, (y0 + (y1 - y0) * 3 // 5) * SUPER)
    flap = [((x0 + edge) * SUPER, (y0 + edge) * SUPER), ((x1 - edge) * SUPER, (y0 + edge) * SUPER), tip]
    draw.polygon(flap, fill=FLAP, outline=PAPER_EDGE, width=edge * SUPER)
    badge = max(10, n * 9 // 16)
    big.alpha_composite(draw_app_icon(badge).resize((badge * SUPER, badge * SUPER), Image.NEAREST),
                        ((n - badge) * SUPER, (n - badge) * SUPER))
    return finish(big, n)


def write_desktop_icons(root):
    """Writes <root>/<size>x<size>/{apps,mimetypes}/<name>.png for every size."""
    for n in SIZES:
        for kind, name, draw in (("apps", APP_ICON_NAME, draw_app_icon),
                                 ("mimetypes", ENVELOPE_ICON_NAME, draw_envelope_icon)):
            folder = os.path.join(root, "%dx%d" % (n, n), kind)
            os.makedirs(folder, exist_ok=True)
            draw(n).save(os.path.join(folder, name + ".png"), optimize=True)
