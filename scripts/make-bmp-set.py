#!/usr/bin/python3
"""Writes the BMP test set: every header version, bit depth, compression and
row order, with the headers written by hand, and what each file should decode
to.

    /usr/bin/python3 scripts/make-bmp-set.py [DIR]   (default tests/data/bmp)

For each NAME.bmp the manifest (DIR/manifest.txt) says how to judge it:
  pillow  Pillow decodes it; NAME.png holds Pillow's pixels as RGBA.
  source  Pillow refuses a layout we read (2-bit, V2/V3 headers, other masks,
          alpha bit fields); NAME.png holds the pixels the file was made from.
  broken  truly broken: a decoder must refuse it.
Deterministic: the same bytes every run. Needs Pillow (Debian's python3-pil).
"""
import io
import os
import struct
import sys

from PIL import Image

W, H = 13, 7  # odd width: rows need padding at every depth


def palette(n):
    return [((i * 37 + 11) % 256, (i * 91 + 53) % 256, (i * 151 + 97) % 256) for i in range(n)]


def indices(bpp, limit=None):
    n = limit or (1 << bpp)
    return [[(x * 3 + y * 5) % n for x in range(W)] for y in range(H)]


def colours():
    return [[((x * 19 + 7) % 256, (y * 37 + 3) % 256, ((x + y) * 23 + 1) % 256, (x * 40 + y * 9 + 15) % 256)
             for x in range(W)] for y in range(H)]


def pack_rows(rows, bpp):
    """Rows of integers, each bpp bits (<= 8) or bpp/8 little-endian bytes, padded to 4 bytes."""
    out = b""
    for row in rows:
        if bpp <= 8:
            bits = "".join(format(v, "0%db" % bpp) for v in row)
            bits += "0" * (-len(bits) % 8)
            data = bytes(int(bits[i:i + 8], 2) for i in range(0, len(bits), 8))
        else:
            data = b"".join(v.to_bytes(bpp // 8, "little") for v in row)
        out += data + b"\0" * (-len(data) % 4)
    return out


def info_header(size, width, height, bpp, compression, data_len, colours_used=0, masks=None, bottom_up=True):
    h = struct.pack("<IiiHHIIiiII", size, width, height if bottom_up else -height, 1, bpp, compression, data_len,
                    2835, 2835, colours_used, 0)
    if size > 40:
        m = list(masks or (0, 0, 0, 0)) + [0] * 4
        extra = struct.pack("<IIII", *m[:4])[: size - 40]
        h += extra + b"\0" * (size - 40 - len(extra))
    return h


def bmp_file(header, table, data, gap=0):
    offset = 14 + len(header) + len(table) + gap
    return b"BM" + struct.pack("<IHHI", offset + len(data), 0, 0, offset) + header + table + b"\x5a" * gap + data


def palette_table(pal, entry=4):
    return b"".join(bytes([b, g, r] + ([0] * (entry - 3))) for (r, g, b) in pal)


def stored(rows, top_down):
    return rows if top_down else rows[::-1]


def extract(v, mask):
    """A channel widened to 8 bits, as Pillow widens 5 and 6 bits: v * 255 / max, rounded down."""
    if not mask:
        return 255
    shift = (mask & -mask).bit_length() - 1
    top = mask >> shift
    return ((v & mask) >> shift) * 255 // top


def pack_pixel(c, masks):
    v = 0
    for value, mask in zip(c, masks):
        if mask:
            shift = (mask & -mask).bit_length() - 1
            bits = bin(mask).count("1")
            v |= ((value >> (8 - bits)) if bits <= 8 else (value << (bits - 8))) << shift
    return v


cases = []  # (name, bytes, expected RGBA rows or None, refuse, judged by the source pixels even where Pillow decodes)


def add(name, data, expected=None, broken=False, by_source=False):
    cases.append((name, data, expected, broken, by_source))


def palette_case(name, bpp, size, top_down=False, gap=0, used=0, pal_n=None, index_limit=None):
    pal = palette(pal_n or (used or (1 << bpp)))
    rows = indices(bpp, index_limit)
    data = pack_rows(stored(rows, top_down), bpp)
    if size == 12:
        header = struct.pack("<IHHHH", 12, W, H, 1, bpp)
        table = palette_table(pal, 3)
    else:
        header = info_header(size, W, H, bpp, 0, len(data), used, bottom_up=not top_down)
        table = palette_table(pal)
    expected = [[pal[i] + (255,) if i < len(pal) else (i, i, i, 255) for i in row] for row in rows]
    add(name, bmp_file(header, table, data, gap), expected)


def direct_case(name, bpp, size, compression=0, masks=None, top_down=False, gap=0, masks_after=False):
    src = colours()
    layout = masks or {16: (0x7C00, 0x3E0, 0x1F, 0), 24: (0xFF0000, 0xFF00, 0xFF, 0), 32: (0xFF0000, 0xFF00, 0xFF, 0)}[bpp]
    rows = [[pack_pixel(c, layout) for c in row] for row in src]
    data = pack_rows(stored(rows, top_down), bpp)
    if size == 12:
        header = struct.pack("<IHHHH", 12, W, H, 1, bpp)
    else:
        header = info_header(size, W, H, bpp, compression, len(data), masks=layout if size > 40 else None,
                             bottom_up=not top_down)
    table = b""
    if masks_after:
        table = struct.pack("<" + "I" * (4 if compression == 6 else 3), *layout[: 4 if compression == 6 else 3])
    # Alpha comes from a mask at 32 bits only; Pillow ignores a 16-bit one too.
    alpha = layout[3] if bpp == 32 else 0
    expected = [[tuple(extract(v, m) for m in layout[:3]) + (extract(v, alpha),) for v in row] for row in rows]
    add(name, bmp_file(header, table, data, gap), expected)


def rle_case(name, four, delta):
    """Runs, literal runs, row ends, an end-of-image escape and, when asked, a
    delta jump. Pillow 9.4 reads a delta's two bytes twice and so draws such a
    file wrong: those files are judged by the pixels they were made from."""
    pal = palette(16 if four else 256)
    grid = [[0] * W for _ in range(H)]
    out = b""
    for y in range(H):  # stored bottom-up: file row y is image row H-1-y
        x = 0
        if delta and y == 2:  # jump 4 right, then continue
            out += bytes([0, 2, 4, 0])
            x = 4
        run = 5 if y % 2 else 3
        a, b = (y + 1) % 16, (y + 7) % 16
        if four:
            out += bytes([run, a << 4 | b])
            for i in range(run):
                grid[y][x + i] = a if i % 2 == 0 else b
        else:
            out += bytes([run, y * 11 + 3])
            for i in range(run):
                grid[y][x + i] = y * 11 + 3
        x += run
        # A literal run: 3 pixels and a pad byte at 8 bits; 4 at 4 bits, since
        # Pillow 9.4 drops the last pixel of an odd 4-bit literal run.
        n = 4 if four else 3
        lit = [(x + i + y) % (16 if four else 256) for i in range(n)]
        if four:
            out += bytes([0, 4, lit[0] << 4 | lit[1], lit[2] << 4 | lit[3]])
        else:
            out += bytes([0, 3] + lit + [0])
        for i, v in enumerate(lit):
            grid[y][x + i] = v
        x += n
        rest = W - x
        out += bytes([rest, (9 << 4 | 9) if four else 9])
        for i in range(rest):
            grid[y][x + i] = 9
        out += bytes([0, 0])
    out += bytes([0, 1])
    bpp = 4 if four else 8
    header = info_header(40, W, H, bpp, 2 if four else 1, len(out), len(pal))
    expected = [[pal[i] + (255,) for i in row] for row in grid[::-1]]
    add(name, bmp_file(header, palette_table(pal), out), expected, by_source=delta)


def build():
    for size, tag in ((12, "core"), (40, "info"), (52, "v2"), (56, "v3"), (64, "os2v2"), (108, "v4"), (124, "v5")):
        for bpp in (1, 2, 4, 8):
            palette_case("pal%d-%s" % (bpp, tag), bpp, size)
        direct_case("rgb24-%s" % tag, 24, size)
        if size != 12:
            direct_case("rgb16-%s" % tag, 16, size)
            direct_case("rgb32-%s" % tag, 32, size)
    for bpp in (1, 4, 8, 24, 32):
        if bpp <= 8:
            palette_case("pal%d-topdown" % bpp, bpp, 40, top_down=True)
            palette_case("pal%d-odd-offset" % bpp, bpp, 40, gap=3)
        else:
            direct_case("rgb%d-topdown" % bpp, bpp, 40, top_down=True)
            direct_case("rgb%d-odd-offset" % bpp, bpp, 108, gap=1)
    palette_case("pal8-short-palette", 8, 40, used=5, index_limit=5)
    palette_case("pal4-short-palette", 4, 40, used=3, index_limit=3)
    palette_case("pal8-core-short-palette", 8, 12, pal_n=6, index_limit=6)
    palette_case("pal8-indices-past-palette", 8, 40, used=2, index_limit=200)
    # Bit fields: the masks after a plain info header, or inside the longer ones.
    fields = {
        "565": (16, (0xF800, 0x7E0, 0x1F, 0)), "555": (16, (0x7C00, 0x3E0, 0x1F, 0)),
        "444": (16, (0xF00, 0xF0, 0xF, 0)), "1555": (16, (0x7C00, 0x3E0, 0x1F, 0x8000)),
        "bgrx": (32, (0xFF0000, 0xFF00, 0xFF, 0)), "bgra": (32, (0xFF0000, 0xFF00, 0xFF, 0xFF000000)),
        "rgba": (32, (0xFF, 0xFF00, 0xFF0000, 0xFF000000)), "xbgr": (32, (0xFF000000, 0xFF0000, 0xFF00, 0)),
        "abgr": (32, (0xFF000000, 0xFF0000, 0xFF00, 0xFF)), "101010": (32, (0x3FF00000, 0xFFC00, 0x3FF, 0)),
        "bgr24": (24, (0xFF0000, 0xFF00, 0xFF, 0)),
    }
    for label, (bpp, masks) in fields.items():
        if not masks[3]:
            direct_case("fields%d-%s-info" % (bpp, label), bpp, 40, 3, masks, masks_after=True)
        direct_case("fields%d-%s-v3" % (bpp, label), bpp, 56, 3, masks)
        direct_case("fields%d-%s-v4" % (bpp, label), bpp, 108, 3, masks)
        direct_case("fields%d-%s-v5-topdown" % (bpp, label), bpp, 124, 3, masks, top_down=True)
    direct_case("alphafields32-info", 32, 40, 6, (0xFF0000, 0xFF00, 0xFF, 0xFF000000), masks_after=True)
    for four in (False, True):
        rle_case("rle%d" % (4 if four else 8), four, False)
        rle_case("rle%d-delta" % (4 if four else 8), four, True)

    # Truly broken: each must be refused.
    good = cases[0][1]
    def patched(at, fmt, value, base=None):
        b = bytearray(base or [c for c in cases if c[0] == "rgb24-info"][0][1])
        struct.pack_into(fmt, b, at, value)
        return bytes(b)
    add("broken-header-size", patched(14, "<I", 20), broken=True)
    add("broken-depth-7", patched(28, "<H", 7), broken=True)
    add("broken-jpeg-compression", patched(30, "<I", 4), broken=True)
    add("broken-rle8-on-24-bits", patched(30, "<I", 1), broken=True)
    add("broken-zero-width", patched(18, "<i", 0), broken=True)
    add("broken-zero-height", patched(22, "<i", 0), broken=True)
    add("broken-truncated-pixels", [c for c in cases if c[0] == "rgb24-info"][0][1][:-40], broken=True)
    add("broken-truncated-header", good[:30], broken=True)
    add("broken-offset-past-end", patched(10, "<I", 100000), broken=True)
    add("broken-split-mask", patched(54, "<I", 0xF0F0, [c for c in cases if c[0] == "fields16-565-v4"][0][1]),
        broken=True)


def pillow_rgba(data):
    try:
        im = Image.open(io.BytesIO(data))
        im.load()
        return im.convert("RGBA")
    except Exception:
        return None


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..", "tests", "data", "bmp")
    os.makedirs(out, exist_ok=True)
    build()
    manifest = []
    for name, data, expected, broken, by_source in cases:
        with open(os.path.join(out, name + ".bmp"), "wb") as f:
            f.write(data)
        theirs = pillow_rgba(data)
        if broken:
            if theirs is not None:
                sys.exit("%s: Pillow decodes a file meant to be broken" % name)
            manifest.append("%s broken" % name)
            continue
        if theirs is not None and not by_source:
            image, how = theirs, "pillow"
        else:
            image = Image.new("RGBA", (W, H))
            image.putdata([p for row in expected for p in row])
            how = "source"
        image.save(os.path.join(out, name + ".png"))
        manifest.append("%s %s" % (name, how))
    with open(os.path.join(out, "manifest.txt"), "w") as f:
        f.write("\n".join(manifest) + "\n")
    print("%d files: %s" % (len(manifest), ", ".join("%d %s" % (sum(1 for m in manifest if m.endswith(k)), k)
                                                    for k in ("pillow", "source", "broken"))))


if __name__ == "__main__":
    main()
