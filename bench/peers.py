"""Whole-process comparison of the project's image and video paths with the
best-known tools, in one run on one machine. See bench/peers.sh."""
import os, resource, shutil, statistics, subprocess, sys, tempfile, time

BIN = os.path.abspath(sys.argv[1])
ROUNDS = int(os.environ.get("ROUNDS", "5"))
MOVIE_SECONDS = os.environ.get("MOVIE_SECONDS", "5")
# CASES="capture vs bare fit|fit 1024, JPEG q50" measures only those rows (names as printed).
ONLY = [c.strip() for c in os.environ.get("CASES", "").split("|") if c.strip()]

try:
    from PIL import Image, ImageChops, ImageOps, ImageStat
    HAVE_PIL = True
except ImportError:
    HAVE_PIL = False

missing = []
for tool, package in (("vipsthumbnail", "libvips-tools"), ("vips", "libvips-tools"), ("ffmpeg", "ffmpeg")):
    if not shutil.which(tool):
        missing.append(package)
if not os.path.exists("/usr/bin/convert"):
    missing.append("imagemagick")
if not HAVE_PIL:
    missing.append("python3-pil")
if missing:
    print("missing peers: " + ", ".join(sorted(set(missing))) + "  (make bench-deps installs them)")

work = tempfile.mkdtemp(prefix="velqor-peers-")
W = lambda *p: os.path.join(work, *p)


def run(argv, stdout=subprocess.DEVNULL):
    """Runs one whole process; returns (seconds, peak resident MiB)."""
    t = time.perf_counter()
    p = subprocess.Popen(argv, stdout=stdout, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(p.pid, 0)
    seconds = time.perf_counter() - t
    if status != 0:
        raise RuntimeError("failed: " + " ".join(argv))
    return seconds, usage.ru_maxrss / 1024.0


PILLOW_FIT = """
import sys
from PIL import Image, ImageOps
im = ImageOps.exif_transpose(Image.open(sys.argv[1]))
im.thumbnail((1024, 1024), Image.LANCZOS)
im.save(sys.argv[2], quality=50)
"""
PILLOW_FULL = """
import sys
from PIL import Image, ImageOps
im = ImageOps.exif_transpose(Image.open(sys.argv[1]))
im.save(sys.argv[2], **({"quality": 100} if sys.argv[2].endswith(".jpg") else {}))
"""


def capture(args, media_option, media, tmp):
    shutil.rmtree(tmp, ignore_errors=True)
    return [BIN, "take-picture", "--args", args, media_option, media, "--temp-dir", tmp, "--library", W("lib")]


def main():
    print(f"inputs made with the project's own code in {work}")
    subprocess.run([BIN, "sample", "camera-jpeg", "-o", W("camera.jpg")], check=True, stdout=subprocess.DEVNULL)
    subprocess.run([BIN, "sample", "png", "--width", "4032", "--height", "3024", "-o", W("scene.png")], check=True,
                   stdout=subprocess.DEVNULL)
    big_cases = ("200 MP full size, JPEG q50", "200 MP full size, PNG", "200 MP upright, JPEG q50")
    have_big = not ONLY or any(c in ONLY for c in big_cases)
    if have_big:
        # A phone's 200 MP photo (16330 x 12247), written row by row.
        subprocess.run([BIN, "sample", "camera-jpeg", "--width", "16330", "--height", "12247", "-o", W("big.jpg")],
                       check=True, stdout=subprocess.DEVNULL)
    have_ffmpeg = shutil.which("ffmpeg") is not None and (not ONLY or "remux + faststart" in ONLY)
    if have_ffmpeg:
        subprocess.run([BIN, "sample", "movie", "--noise", "--seconds", MOVIE_SECONDS, "--width", "1280", "--height", "720",
                        "-o", W("movie.mov")], check=True, stdout=subprocess.DEVNULL)
    src, png_src = W("camera.jpg"), W("scene.png")

    # case -> tool -> (argv, output file)
    cases = {}
    def add(case, tool, argv, out, needs=None):
        if (needs and not needs()) or (ONLY and case not in ONLY):
            return
        cases.setdefault(case, {})[tool] = (argv, out)
    vips = lambda: shutil.which("vipsthumbnail") is not None
    im = lambda: os.path.exists("/usr/bin/convert")
    pil = lambda: HAVE_PIL
    fit = ["--width", "1024", "--height", "1024", "--correct-orientation"]
    add("fit 1024, JPEG q50", "velqor", [BIN, "image-fit", src, *fit, "--quality", "50", "-o", W("fit-velqor.jpg")], W("fit-velqor.jpg"))
    add("fit 1024, JPEG q50", "vipsthumbnail", ["vipsthumbnail", src, "--size", "1024x1024", "-o", W("fit-vips.jpg") + "[Q=50]"], W("fit-vips.jpg"), vips)
    add("fit 1024, JPEG q50", "imagemagick", ["/usr/bin/convert", src, "-auto-orient", "-resize", "1024x1024", "-quality", "50", W("fit-im.jpg")], W("fit-im.jpg"), im)
    add("fit 1024, JPEG q50", "pillow", ["/usr/bin/python3", "-c", PILLOW_FIT, src, W("fit-pil.jpg")], W("fit-pil.jpg"), pil)
    add("PNG source, fit 1024", "velqor", [BIN, "image-fit", png_src, *fit, "--quality", "50", "-o", W("pfit-velqor.jpg")], W("pfit-velqor.jpg"))
    add("PNG source, fit 1024", "vipsthumbnail", ["vipsthumbnail", png_src, "--size", "1024x1024", "-o", W("pfit-vips.jpg") + "[Q=50]"], W("pfit-vips.jpg"), vips)
    add("PNG source, fit 1024", "imagemagick", ["/usr/bin/convert", png_src, "-resize", "1024x1024", "-quality", "50", W("pfit-im.jpg")], W("pfit-im.jpg"), im)
    add("PNG source, fit 1024", "pillow", ["/usr/bin/python3", "-c", PILLOW_FIT, png_src, W("pfit-pil.jpg")], W("pfit-pil.jpg"), pil)
    stored = ["--width", "0", "--height", "0"]
    add("full size re-encode, JPEG q50", "velqor", [BIN, "image-fit", src, *stored, "--quality", "50", "-o", W("q50-velqor.jpg")], W("q50-velqor.jpg"))
    add("full size re-encode, JPEG q50", "vips", ["vips", "copy", src, W("q50-vips.jpg") + "[Q=50]"], W("q50-vips.jpg"), vips)
    add("full size re-encode, JPEG q50", "imagemagick", ["/usr/bin/convert", src, "-quality", "50", W("q50-im.jpg")], W("q50-im.jpg"), im)
    full = ["--width", "0", "--height", "0", "--correct-orientation"]
    add("full size upright, JPEG q100", "velqor", [BIN, "image-fit", src, *full, "--quality", "100", "-o", W("full-velqor.jpg")], W("full-velqor.jpg"))
    add("full size upright, JPEG q100", "vips", ["vips", "autorot", src, W("full-vips.jpg") + "[Q=100]"], W("full-vips.jpg"), vips)
    add("full size upright, JPEG q100", "imagemagick", ["/usr/bin/convert", src, "-auto-orient", "-quality", "100", W("full-im.jpg")], W("full-im.jpg"), im)
    add("full size upright, JPEG q100", "pillow", ["/usr/bin/python3", "-c", PILLOW_FULL, src, W("full-pil.jpg")], W("full-pil.jpg"), pil)
    add("full size, PNG", "velqor", [BIN, "image-fit", src, *full, "--png", "-o", W("full-velqor.png")], W("full-velqor.png"))
    add("full size, PNG", "vips", ["vips", "autorot", src, W("full-vips.png")], W("full-vips.png"), vips)
    add("full size, PNG", "imagemagick", ["/usr/bin/convert", src, "-auto-orient", W("full-im.png")], W("full-im.png"), im)
    add("full size, PNG", "pillow", ["/usr/bin/python3", "-c", PILLOW_FULL, src, W("full-pil.png")], W("full-pil.png"), pil)
    if have_big:
        # One run each: the PNG rows take tens of seconds.
        big = W("big.jpg")
        add(big_cases[0], "velqor", [BIN, "image-fit", big, *stored, "--quality", "50", "-o", W("big-velqor.jpg")], W("big-velqor.jpg"))
        add(big_cases[0], "vips", ["vips", "copy", big, W("big-vips.jpg") + "[Q=50]"], W("big-vips.jpg"), vips)
        add(big_cases[1], "velqor", [BIN, "image-fit", big, *stored, "--png", "-o", W("big-velqor.png")], W("big-velqor.png"))
        add(big_cases[1], "vips", ["vips", "copy", big, W("big-vips.png")], W("big-vips.png"), vips)
        add(big_cases[2], "velqor", [BIN, "image-fit", big, *full, "--quality", "50", "-o", W("bigup-velqor.jpg")], W("bigup-velqor.jpg"))
        add(big_cases[2], "vips", ["vips", "autorot", big, W("bigup-vips.jpg") + "[Q=50]"], W("bigup-vips.jpg"), vips)
    add("capture vs bare fit", "velqor capture", capture("[50, 1, 1, 1024, 1024, 0, 0, false, true]", "--photo", src, W("tmp")), None)
    add("capture vs bare fit", "velqor image-fit", [BIN, "image-fit", src, *fit, "--quality", "50", "-o", W("bare.jpg")], W("bare.jpg"))
    if have_ffmpeg:
        add("remux + faststart", "velqor capture", capture("[50, 1, 1, null, null, 0, 1]", "--video", W("movie.mov"), W("vtmp")), None)
        add("remux + faststart", "ffmpeg", ["ffmpeg", "-v", "error", "-y", "-i", W("movie.mov"), "-c", "copy", "-movflags", "+faststart", W("remux.mp4")], W("remux.mp4"))

    samples = {case: {tool: [] for tool in tools} for case, tools in cases.items()}
    for r in range(ROUNDS):
        for case, tools in cases.items():
            if case in big_cases and r > 0:
                continue
            # Each round starts the case with the next tool, so no tool is always the first
            # after another case's process (and pays for the caches that one left cold).
            order = list(tools.items())
            order = order[r % len(order):] + order[:r % len(order)]
            for tool, (argv, out) in order:
                # Every tool writes a new file: none pays for truncating (or is spared allocating)
                # its last output, and the capture gets a fresh temporary directory.
                if argv[1] == "take-picture":
                    shutil.rmtree(argv[argv.index("--temp-dir") + 1], ignore_errors=True)
                if out and os.path.exists(out):
                    os.remove(out)
                # Every file written so far (a remux writes hundreds of MB) reaches the disk first,
                # untimed, so no process is measured while the kernel writes back another's output.
                os.sync()
                samples[case][tool].append(run(argv))
        print(f"  round {r + 1}/{ROUNDS} done", file=sys.stderr)

    print(f"\n{ROUNDS} alternating rounds per cell (the 200 MP rows: one run), medians; ratio = velqor / peer (time below 1.0: velqor faster)\n")
    print(f"| case | tool | median ms | peak MiB | output bytes | time ratio | memory ratio |")
    print(f"|---|---|---:|---:|---:|---:|---:|")
    medians = {}
    for case, tools in cases.items():
        ours_tool = next(t for t in tools if t.startswith("velqor"))
        for tool, (argv, out) in tools.items():
            t = statistics.median(s[0] for s in samples[case][tool])
            m = statistics.median(s[1] for s in samples[case][tool])
            medians[(case, tool)] = (t, m)
        ot, om = medians[(case, ours_tool)]
        for tool, (argv, out) in tools.items():
            t, m = medians[(case, tool)]
            size = os.path.getsize(out) if out and os.path.exists(out) else None
            ratio = "" if tool == ours_tool else f"{ot / t:.2f}"
            mratio = "" if tool == ours_tool else f"{om / m:.2f}"
            print(f"| {case} | {tool} | {t * 1000:.0f} | {m:.0f} | {size if size is not None else '-'} | {ratio} | {mratio} |")

    print("\ngoals (time and peak memory ratios against the peer; capture in ms over the bare path):")
    for case, peer, goal, memory in (("200 MP full size, JPEG q50", "vips", 1.0, 1.0),
                                     ("200 MP full size, PNG", "vips", 1.0, 1.5),
                                     ("200 MP upright, JPEG q50", "vips", 1.0, None),
                                     ("full size re-encode, JPEG q50", "vips", 1.0, True),
                                     ("PNG source, fit 1024", "vipsthumbnail", 1.0, True),
                                     ("full size upright, JPEG q100", "vips", 1.0, False),
                                     ("fit 1024, JPEG q50", "vipsthumbnail", 0.8, False)):
        if (case, peer) not in medians:
            continue
        (ot, om), (pt, pm) = medians[(case, "velqor")], medians[(case, peer)]
        verdicts = [f"time {ot / pt:.2f} (goal <= {goal})" + ("" if ot / pt <= goal else " MISSED")]
        if memory:
            limit = 1.0 if memory is True else memory
            verdicts.append(f"memory {om / pm:.2f} (goal <= {limit})" + ("" if om / pm <= limit else " MISSED"))
        print(f"  {case} vs {peer}: " + ", ".join(verdicts))
    c = medians.get(("capture vs bare fit", "velqor capture"))
    b = medians.get(("capture vs bare fit", "velqor image-fit"))
    if c and b:
        extra = (c[0] - b[0]) * 1000
        print(f"  whole capture adds {extra:.1f} ms to the bare image path (goal <= 15 ms)" + ("" if extra <= 15 else " MISSED"))
    if ("remux + faststart", "ffmpeg") in medians:
        size = os.path.getsize(W("movie.mov")) / 1e6
        ours = size / medians[("remux + faststart", "velqor capture")][0]
        theirs = size / medians[("remux + faststart", "ffmpeg")][0]
        print(f"remux of {size:.0f} MB: velqor {ours:.0f} MB/s, ffmpeg {theirs:.0f} MB/s, throughput ratio {ours / theirs:.2f} (goal >= 0.8)")
    for a, b_, what in (("full size, PNG", "vips", "PNG size vs vips"),):
        if (a, b_) in medians:
            print(f"{what}: {os.path.getsize(W('full-velqor.png')) / os.path.getsize(W('full-vips.png')):.2f} (goal <= 1.1)")

    # Data URL of a 256 MiB movie: peak memory over payload.
    if have_ffmpeg:
        subprocess.run([BIN, "sample", "movie", "--noise", "--seconds", "7", "--width", "1280", "--height", "720",
                        "-o", W("big.mov")], check=True, stdout=subprocess.DEVNULL)
        with open(W("data-url.txt"), "wb") as out:
            t, m = run(capture("[50, 0, 1, null, null, 0, 1]", "--video", W("big.mov"), W("dtmp")), stdout=out)
        payload = os.path.getsize(W("data-url.txt")) / 2**20
        print(f"movie of {os.path.getsize(W('big.mov')) / 2**20:.0f} MiB as a data URL: answer {payload:.0f} MiB, "
              f"peak {m:.0f} MiB = {m / payload:.2f} x the payload, {t:.1f} s")

    if HAVE_PIL and not ONLY:
        quality(W)
        roads(W)
    shutil.rmtree(work, ignore_errors=True)


def psnr(a, b):
    if a.size != b.size:
        a = a.resize(b.size, Image.LANCZOS)
    stat = ImageStat.Stat(ImageChops.difference(a.convert("RGB"), b.convert("RGB")))
    n = b.size[0] * b.size[1]
    mse = sum(stat.sum2) / (3 * n)
    import math
    return float("inf") if mse == 0 else 10 * math.log10(255 * 255 / mse)


def quality(W):
    """Each fit result against a reference: full decode, upright, exact Lanczos to the same size."""
    full = ImageOps.exif_transpose(Image.open(W("camera.jpg"))).convert("RGB")
    print("\nquality of the fit 1024 results against a full-resolution decode + exact Lanczos resample:")
    scores = {}
    for tool, name in (("velqor", "fit-velqor.jpg"), ("vipsthumbnail", "fit-vips.jpg"), ("imagemagick", "fit-im.jpg"),
                       ("pillow", "fit-pil.jpg")):
        if not os.path.exists(W(name)):
            continue
        out = Image.open(W(name)).convert("RGB")
        reference = full.resize(out.size, Image.LANCZOS, reducing_gap=None)
        scores[tool] = psnr(out, reference)
        print(f"  {tool}: {out.size[0]}x{out.size[1]}, PSNR {scores[tool]:.2f} dB")
    if os.path.exists("/usr/bin/convert"):
        # ImageMagick keeps the source's 4:4:4 chroma; the project (like a phone) writes 4:2:0 below
        # quality 90. The same fit with 4:2:0 chroma shows what the sampling alone is worth.
        subprocess.run(["/usr/bin/convert", W("camera.jpg"), "-auto-orient", "-resize", "1024x1024", "-quality", "50",
                        "-sampling-factor", "2x2", W("fit-im420.jpg")], check=True)
        out = Image.open(W("fit-im420.jpg")).convert("RGB")
        im420 = psnr(out, full.resize(out.size, Image.LANCZOS, reducing_gap=None))
        print(f"  imagemagick with 4:2:0 chroma (not timed): {os.path.getsize(W('fit-im420.jpg'))} bytes, PSNR {im420:.2f} dB")
    peers = [v for k, v in scores.items() if k != "velqor"]
    if peers and "velqor" in scores:
        best = max(peers)
        verdict = "within" if scores["velqor"] >= best - 0.5 else "NOT within"
        print(f"  velqor {scores['velqor'] - best:+.2f} dB against the best peer ({verdict} 0.5 dB)")


def roads(W):
    """The re-encode roads against the whole-bitmap road at the same size: PSNR of each against a full decode."""
    print("\nre-encode roads against the whole-bitmap road, PSNR against a full decode of the source:")
    stored = Image.open(W("camera.jpg")).convert("RGB")
    upright = ImageOps.exif_transpose(Image.open(W("camera.jpg"))).convert("RGB")
    for what, args, reference, turn in (("full size q50", ["--quality", "50"], stored, False),
                                        ("full size upright q100", ["--correct-orientation", "--quality", "100"], upright, True)):
        scores = {}
        for road, extra in (("road", []), ("whole bitmap", ["--whole-bitmap"])):
            out = W("road.jpg")
            subprocess.run([BIN, "image-fit", W("camera.jpg"), "--width", "0", "--height", "0", *args, *extra, "-o", out],
                           check=True, stdout=subprocess.DEVNULL)
            scores[road] = (psnr(Image.open(out).convert("RGB"), reference), os.path.getsize(out))
        delta = scores["road"][0] - scores["whole bitmap"][0]
        print(f"  {what}: road {scores['road'][0]:.2f} dB ({scores['road'][1]} bytes), whole bitmap "
              f"{scores['whole bitmap'][0]:.2f} dB ({scores['whole bitmap'][1]} bytes): {delta:+.2f} dB "
              f"({'within' if delta >= -0.3 else 'NOT within'} 0.3 dB)")
    # The PNG rows road gives the whole-bitmap road's pixels byte for byte (tests/ReencodeRoadsTest.cpp).


main()
