#!/usr/bin/env python3
"""The VELT | Compressor benchmark: prints a Markdown table of measured figures.

Corpus: real photographs from Debian's lomiri-wallpapers-20.04 package (four JPEGs of 9 to 24
megapixels, fetched with apt-get download), plus PNG, WebP and HEIC versions derived from them at
a quarter of their size, plus synthetic pictures for the 48-megapixel and 1-megapixel cases.
Everything is assembled under bench/.corpus on the first run.
"""
import concurrent.futures
import os
import resource
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.environ.get("VELT_BUILD_DIR", os.path.join(ROOT, "build"))
VELT = os.path.join(BUILD, "src", "app", "velt-compressor")
TOOL = os.path.join(BUILD, "bench", "bench_tool")
CORPUS = os.path.join(ROOT, "bench", ".corpus")
IDLE_SECONDS = int(os.environ.get("VELT_BENCH_IDLE_SECONDS", "60"))
ROUNDS = int(os.environ.get("VELT_BENCH_ROUNDS", "3"))
SCAN_COST = os.path.join(BUILD, "bench", "bench_scan_cost")
LONG_RUN = os.path.join(BUILD, "bench", "bench_long_run")
# The settings the engine gives cjpeg on the default (balanced) preset: jpegCandidates() in
# src/engine/encoders/jpeg_path.cpp, quality from the preset's JPEG number.
CJPEG_ARGUMENTS = "-quality 76 -progressive -optimize -sample 2x2"
# The presets' quality numbers, as defaults() in src/model/settings.cpp gives them.
PRESET_QUALITIES = {
    "balanced": {"jpeg": 76, "png": 82, "webp": 78, "avif": 50, "heic": 72},
    "gentle": {"jpeg": 86, "png": 92, "webp": 86, "avif": 62, "heic": 82},
    "maximum": {"jpeg": 64, "png": 72, "webp": 64, "avif": 42, "heic": 60},
}
# cwebp's arguments around "-quiet -q Q" per preset: webPCandidates() in webp_path.cpp.
WEBP_ARGUMENTS = {
    "balanced": ([], ["-m", "3", "-mt"]),
    "gentle": (["-preset", "photo"], ["-m", "3", "-mt"]),
    "maximum": ([], ["-m", "4", "-mt", "-sharp_yuv"]),
}


def run(args, **kwargs):
    return subprocess.run(args, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **kwargs)


def assemble_corpus():
    photos = os.path.join(CORPUS, "photos")
    derived = os.path.join(CORPUS, "derived")
    if os.path.isdir(derived) and len(os.listdir(derived)) >= 16:
        return photos, derived
    shutil.rmtree(CORPUS, ignore_errors=True)
    os.makedirs(photos)
    os.makedirs(derived)
    download = os.path.join(CORPUS, "deb")
    os.makedirs(download)
    run(["apt-get", "download", "lomiri-wallpapers-20.04"], cwd=download)
    deb = [f for f in os.listdir(download) if f.endswith(".deb")][0]
    run(["dpkg-deb", "-x", os.path.join(download, deb), os.path.join(download, "x")])
    backgrounds = os.path.join(download, "x", "usr", "share", "backgrounds")
    for name in sorted(os.listdir(backgrounds)):
        if name.lower().endswith(".jpg"):
            shutil.copy(os.path.join(backgrounds, name), os.path.join(photos, name))
    for name in sorted(os.listdir(photos)):
        stem = os.path.splitext(name)[0]
        source = os.path.join(photos, name)
        for ext in ("jpg", "png", "heic"):
            run([TOOL, "convert", source, os.path.join(derived, f"{stem}.{ext}"), "--scale", "4"])
        run(["cwebp", "-quiet", "-q", "90", os.path.join(derived, f"{stem}.png"),
             "-o", os.path.join(derived, f"{stem}.webp")])
    run([TOOL, "synth", os.path.join(CORPUS, "48mp.jpg"), "8000", "6000"])
    run([TOOL, "synth", os.path.join(CORPUS, "1mp.jpg"), "1152", "864"])
    return photos, derived


def assemble_sized(photos):
    """Camera-sized JPEGs made from the real photographs: each photograph shrunk (area average) to
    2, 3.5 and 5 MP for the typical case, to 12 MP where it is larger, and the originals of 20 MP
    and more as they are for the 24 MP case."""
    sized = os.path.join(CORPUS, "sized")
    classes = {name: os.path.join(sized, name) for name in ("typical", "12mp", "24mp")}
    if all(os.path.isdir(d) and os.listdir(d) for d in classes.values()):
        return classes
    shutil.rmtree(sized, ignore_errors=True)
    for d in classes.values():
        os.makedirs(d)
    for name in sorted(os.listdir(photos)):
        source = os.path.join(photos, name)
        stem = os.path.splitext(name)[0]
        w, h = map(int, run([TOOL, "size", source]).stdout.split())
        for mp in ("2.0", "3.5", "5.0"):
            run([TOOL, "convert", source, os.path.join(classes["typical"], f"{stem}-{mp}mp.jpg"),
                 "--megapixels", mp])
        if w * h > 12.5e6:
            run([TOOL, "convert", source, os.path.join(classes["12mp"], f"{stem}-12mp.jpg"),
                 "--megapixels", "12"])
        if w * h >= 20e6:
            shutil.copy(source, os.path.join(classes["24mp"], name))
    return classes


def assemble_lossless(photos):
    """The typical case's sizes (2, 3.5 and 5 MP) made from the photographs again, kept as PNG:
    pictures that were never JPEG-coded on their own 8×8 grid."""
    folder = os.path.join(CORPUS, "sized", "lossless")
    if os.path.isdir(folder) and os.listdir(folder):
        return folder
    os.makedirs(folder)
    for name in sorted(os.listdir(photos)):
        stem = os.path.splitext(name)[0]
        for mp in ("2.0", "3.5", "5.0"):
            run([TOOL, "convert", os.path.join(photos, name),
                 os.path.join(folder, f"{stem}-{mp}mp.png"), "--megapixels", mp])
    return folder


def fresh_env(tmp):
    env = dict(os.environ)
    env["VELT_CONFIG_DIR"] = os.path.join(tmp, "config")
    env["VELT_LOG_DIR"] = os.path.join(tmp, "config")
    env.pop("VELT_TOOL_DIR", None)
    # The program speaks Russian unless English is chosen; the lines read here are English.
    os.makedirs(env["VELT_CONFIG_DIR"], exist_ok=True)
    with open(os.path.join(env["VELT_CONFIG_DIR"], "native-config.json"), "w") as config:
        config.write('{"language":"english"}')
    return env


def copy_files(files, folder):
    os.makedirs(folder, exist_ok=True)
    for f in files:
        shutil.copy(f, folder)


def once(folder, env, *options):
    started = time.monotonic()
    result = subprocess.run([VELT, "--once", folder, "--original", "keep", *options],
                            env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if result.returncode not in (0, 1):
        sys.exit(f"--once failed: {result.stderr.decode()}")
    return time.monotonic() - started


def oxipng_path():
    bundled = os.path.join(BUILD, "src", "libexec", "velt-compressor", "bin", "oxipng")
    return bundled if os.access(bundled, os.X_OK) else shutil.which("oxipng")


def floor_script(files, out):
    """The same encoder commands the engine runs, decode → intermediate → encoder, as one shell loop."""
    oxipng = oxipng_path()
    lines = ["set -e"]
    for i, f in enumerate(files):
        ext = f.rsplit(".", 1)[1].lower()
        tmp = os.path.join(out, f"i{i}")
        if ext == "jpg":
            lines.append(f"djpeg -pnm '{f}' > {tmp}.ppm")
            lines.append(f"cjpeg -quality 76 -progressive -optimize -sample 2x2 -outfile {tmp}.jpg {tmp}.ppm")
        elif ext == "webp":
            lines.append(f"dwebp -quiet -ppm '{f}' -o {tmp}.ppm")
            lines.append(f"cwebp -quiet -q 78 -m 3 -mt {tmp}.ppm -o {tmp}.webp")
        elif ext == "png":
            lines.append(f"cp '{f}' {tmp}.base.png")
            if oxipng:
                lines.append(f"cp {tmp}.base.png {tmp}.lossless.png")
                lines.append(f"{oxipng} -q -o 4 --strip safe {tmp}.lossless.png")
            lines.append(f"if pngquant --force --skip-if-larger --quality 62-82 --speed 3 "
                         f"--output {tmp}.png {tmp}.base.png; then "
                         + (f"{oxipng} -q -o 4 --strip safe {tmp}.png; " if oxipng else "")
                         + "fi")
    return "\n".join(lines)


def throughput(photos, derived):
    files = [os.path.join(photos, f) for f in sorted(os.listdir(photos))]
    files += [os.path.join(derived, f) for f in sorted(os.listdir(derived))
              if f.endswith((".png", ".webp"))]
    megapixels = 0.0
    for f in files:
        w, h = map(int, run([TOOL, "size", f]).stdout.split())
        megapixels += w * h / 1e6
    with tempfile.TemporaryDirectory() as tmp:
        folder = os.path.join(tmp, "in")
        copy_files(files, folder)
        ours = once(folder, fresh_env(tmp))
        scratch = os.path.join(tmp, "floor")
        os.makedirs(scratch)
        started = time.monotonic()
        subprocess.run(["bash", "-c", floor_script(files, scratch)], check=True)
        floor = time.monotonic() - started
    return len(files), megapixels, ours, floor


def cpu_seconds(pid):
    fields = open(f"/proc/{pid}/stat").read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def idle_cpu():
    with tempfile.TemporaryDirectory() as tmp:
        folder = os.path.join(tmp, "idle")
        os.makedirs(folder)
        for i in range(10000):
            with open(os.path.join(folder, f"note {i}.txt"), "w") as f:
                f.write("plain")
        process = subprocess.Popen([VELT, "--headless", "--watch", folder], env=fresh_env(tmp),
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(5)
        before = cpu_seconds(process.pid)
        time.sleep(IDLE_SECONDS)
        used = cpu_seconds(process.pid) - before
        process.send_signal(signal.SIGTERM)
        process.wait(timeout=30)
    return used * 60 / IDLE_SECONDS


def peak_of(command, env):
    """The most that `command`'s process and the tools it runs held at once, in bytes: the largest
    sum of their resident sets (VmRSS) sampled every 20 ms, and never less than the process's own
    peak (VmHWM), which a sample may miss."""
    process = subprocess.Popen(command, env=env, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    peak = 0
    while process.poll() is None:
        total = 0
        for pid in [process.pid] + children_of(process.pid):
            try:
                for line in open(f"/proc/{pid}/status"):
                    if line.startswith("VmRSS:"):
                        total += int(line.split()[1]) * 1024
                    elif line.startswith("VmHWM:") and pid == process.pid:
                        peak = max(peak, int(line.split()[1]) * 1024)
            except OSError:
                pass
        peak = max(peak, total)
        time.sleep(0.02)
    return peak


def children_of(pid):
    """Every process whose parent is `pid` (any of its threads may have started it)."""
    children = []
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                with open(f"/proc/{entry}/stat") as f:
                    # The field after the parenthesised name: state, then the parent's pid.
                    if int(f.read().rsplit(")", 1)[1].split()[1]) == pid:
                        children.append(int(entry))
            except (OSError, IndexError, ValueError):
                pass
    return children


def peak_memory():
    with tempfile.TemporaryDirectory() as tmp:
        folder = os.path.join(tmp, "big")
        copy_files([os.path.join(CORPUS, "48mp.jpg")], folder)
        peak = peak_of([VELT, "--once", folder, "--original", "keep"], fresh_env(tmp))
    return peak, 8000 * 6000 * 4


# Bytes per pixel that a batch reserves per target format (engine/watcher/memory_budget.cpp).
BATCH_ESTIMATE = {"jpeg": 12, "png": 17, "webp": 15, "heic": 20, "avif": 26}


def peak_memory_per_format():
    """Per target format: the peak of the program and the tool it runs at that moment, on the
    20.4 MP photograph, in bytes, with the raster's size in bytes."""
    source = os.path.join(CORPUS, "sized", "24mp", "Kleiber_by_Lukas_Baubkus.jpg")
    width, height = map(int, run([TOOL, "size", source]).stdout.split())
    rows = []
    for fmt in BATCH_ESTIMATE:
        with tempfile.TemporaryDirectory() as tmp:
            folder = os.path.join(tmp, "big")
            copy_files([source], folder)
            rows.append((fmt, peak_of([VELT, "--once", folder, "--original", "keep", "--format",
                                       fmt, "--jobs", "1"], fresh_env(tmp))))
    return width * height, rows


def arrival_latency():
    samples = []
    with tempfile.TemporaryDirectory() as tmp:
        folder = os.path.join(tmp, "drop")
        os.makedirs(folder)
        process = subprocess.Popen([VELT, "--headless", "--watch", folder], env=fresh_env(tmp),
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(2)
        for i in range(20):
            staging = os.path.join(tmp, f"staged{i}.jpg")
            shutil.copy(os.path.join(CORPUS, "1mp.jpg"), staging)
            output = os.path.join(folder, f"photo{i}_veltcompressed.jpg")
            started = time.monotonic()
            os.rename(staging, os.path.join(folder, f"photo{i}.jpg"))
            while not os.path.exists(output):
                if time.monotonic() - started > 30:
                    sys.exit("no output within 30 s")
                time.sleep(0.005)
            samples.append(time.monotonic() - started)
        process.send_signal(signal.SIGTERM)
        process.wait(timeout=30)
    return statistics.median(samples)


def savings(derived):
    sources = [os.path.join(derived, f) for f in sorted(os.listdir(derived))]
    rows = []
    for preset in ("balanced", "gentle", "maximum"):
        for fmt in ("automatic", "jpeg", "png", "webp", "avif", "heic"):
            with tempfile.TemporaryDirectory() as tmp:
                folder = os.path.join(tmp, "in")
                copy_files(sources, folder)
                once(folder, fresh_env(tmp), "--preset", preset, "--format", fmt)
                before = after = 0
                quality = []
                for src in sources:
                    name = os.path.basename(src)
                    stem = name.rsplit(".", 1)[0]
                    outputs = [f for f in os.listdir(folder) if f.startswith(stem + "_veltcompressed.")]
                    size = os.path.getsize(src)
                    before += size
                    if not outputs:
                        after += size  # already optimal: left as it was
                        continue
                    out = os.path.join(folder, outputs[0])
                    after += os.path.getsize(out)
                    quality.append(float(run([TOOL, "psnr", src, out]).stdout))
                mean = statistics.mean(quality) if quality else float("nan")
                rows.append((preset, fmt, before, after, mean))
    return rows


def child_cpu(args, env=None):
    """User + system CPU seconds of the command and everything it started, pinned to core 0."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    result = subprocess.run(["taskset", "-c", "0", *args], env=env, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if result.returncode != 0:
        sys.exit(f"{args[0]} failed ({result.returncode}): {result.stderr.decode()[-2000:]}")
    return (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime), result.stdout


def icc_profile(path):
    """The ICC profile embedded in a JPEG (APP2 ICC_PROFILE segments, in order), or None."""
    data = open(path, "rb").read()
    chunks = []
    i = 2
    while i + 4 <= len(data) and data[i] == 0xFF:
        marker, length = data[i + 1], int.from_bytes(data[i + 2:i + 4], "big")
        if marker == 0xDA:
            break
        body = data[i + 4:i + 2 + length]
        if marker == 0xE2 and body.startswith(b"ICC_PROFILE\0"):
            chunks.append((body[12], body[14:]))
        i += 2 + length
    return b"".join(c for _, c in sorted(chunks)) or None


def floor_chain(files, out):
    """The floor: for each photo the bare decoder piped into the encoder with the engine's
    settings, and the photo's ICC profile where the engine embeds it too (it leaves sRGB out)."""
    lines = ["set -e -o pipefail"]
    for i, f in enumerate(files):
        icc = ""
        profile = icc_profile(f)
        if profile and b"srgb" not in profile.lower():
            with open(os.path.join(out, f"p{i}.icc"), "wb") as side:
                side.write(profile)
            icc = f"-icc {out}/p{i}.icc "
        lines.append(f"djpeg -pnm '{f}' | cjpeg {icc}{CJPEG_ARGUMENTS} > {out}/o{i}.jpg")
    return "\n".join(lines)


def per_file_cost(files, base):
    """Marginal CPU cost of one more photo, ours and the floor's, one core: each round times a run
    on `base` alone and on `base` plus the photos (alternating the order from round to round);
    (cpu(base + photos) - cpu(base)) / photos removes the start-up and every per-run cost.
    Returns the medians over the rounds, in seconds per photo."""
    ours, floor = [], []
    for round_number in range(ROUNDS):
        with tempfile.TemporaryDirectory(dir=os.path.join(ROOT, "bench", ".corpus")) as tmp:
            measures = {}

            def engine(name, chosen):
                folder = os.path.join(tmp, name)
                copy_files(chosen, folder)
                env = fresh_env(os.path.join(tmp, name + "-data"))
                measures[name], out = child_cpu([VELT, "--once", folder, "--format", "jpeg",
                                                 "--jobs", "1"], env)
                # Every photo must have been encoded, or the difference measures less work.
                encoded = [line for line in out.decode().splitlines()
                           if line.startswith(("compressed  ", "already optimal  "))]
                if len(encoded) != len(chosen):
                    sys.exit(f"--once encoded {len(encoded)} of {len(chosen)} photos:\n"
                             + out.decode())

            def chain(name, chosen):
                scratch = os.path.join(tmp, name)
                os.makedirs(scratch)
                measures[name] = child_cpu(["bash", "-c", floor_chain(chosen, scratch)])[0]

            steps = [lambda: engine("ours-all", [base, *files]), lambda: engine("ours-base", [base]),
                     lambda: chain("floor-all", [base, *files]), lambda: chain("floor-base", [base])]
            for step in (steps if round_number % 2 == 0 else reversed(steps)):
                step()
        ours.append((measures["ours-all"] - measures["ours-base"]) / len(files))
        floor.append((measures["floor-all"] - measures["floor-base"]) / len(files))
    return statistics.median(ours), statistics.median(floor)


def whole_process_cost(files):
    """CPU on one core of the whole program (start-up included) compressing each photo alone,
    against the floor's two processes on the same photo; sums over the photos, medians of
    ROUNDS rounds that alternate the order."""
    ours, floor = [], []
    for round_number in range(ROUNDS):
        totals = {"ours": 0.0, "floor": 0.0}
        for f in files:
            with tempfile.TemporaryDirectory(dir=CORPUS) as tmp:
                folder = os.path.join(tmp, "in")
                copy_files([f], folder)

                def engine():
                    totals["ours"] += child_cpu([VELT, "--once", folder, "--format", "jpeg",
                                                 "--jobs", "1", "--original", "keep"],
                                                fresh_env(tmp))[0]

                def chain():
                    totals["floor"] += child_cpu(["bash", "-c", floor_chain([f], tmp)])[0]

                for step in ((engine, chain) if round_number % 2 == 0 else (chain, engine)):
                    step()
        ours.append(totals["ours"] / len(files))
        floor.append(totals["floor"] / len(files))
    return statistics.median(ours), statistics.median(floor)


class EncoderSweep:
    """Encodes the photos as the engine's encoders would, at an encoder's own quality setting,
    and measures mean SSIM (against the decoded photo) and total bytes. The input is the raster
    the engine hands the tools (a PPM, or a PNG for pngquant), made once by the project's
    decoder; HEIC and AVIF go through the product's libheif encoder (bench_tool heif)."""

    def __init__(self, photos, scratch):
        self.photos, self.scratch, self.cache = photos, scratch, {}
        for i, photo in enumerate(photos):
            run([TOOL, "convert", photo, self.stem(i) + ".ppm"])
            run([TOOL, "convert", photo, self.stem(i) + ".png"])

    def stem(self, index):
        return os.path.join(self.scratch, f"p{index}")

    def encode(self, fmt, preset, setting, index):
        stem = self.stem(index)
        out = f"{stem}.{fmt}-{preset}-{setting}." + ("jpg" if fmt == "jpeg" else fmt)
        if fmt == "jpeg":
            run(["cjpeg", "-quality", str(setting), "-progressive", "-optimize", "-sample", "2x2",
                 "-outfile", out, stem + ".ppm"])
        elif fmt == "webp":
            head, method = WEBP_ARGUMENTS[preset]
            run(["cwebp", *head, "-quiet", "-q", str(setting), *method, stem + ".ppm", "-o", out])
        elif fmt == "png":
            # pngquantArguments() in png_path.cpp; when pngquant gives up (quality out of reach,
            # or not smaller) the engine writes the lossless PNG instead.
            low = 0 if setting < 20 else setting - 20
            done = subprocess.run(["pngquant", "--force", "--skip-if-larger", "--quality",
                                   f"{low}-{setting}", "--speed", "3", "--output", out,
                                   stem + ".png"], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            if done.returncode != 0:
                shutil.copy(stem + ".png", out)
        else:
            run([TOOL, "heif", self.photos[index], out, str(setting)])
        quality = float(run([TOOL, "ssim", self.photos[index], out]).stdout.split()[0])
        size = os.path.getsize(out)
        os.remove(out)
        return quality, size

    def measure(self, fmt, preset, setting):
        """(mean SSIM, total bytes) at the encoder's own `setting`; two photos at a time."""
        key = (fmt, preset if fmt in ("webp", "png") else "", setting)
        if key not in self.cache:
            with concurrent.futures.ThreadPoolExecutor(2) as pool:
                results = list(pool.map(lambda i: self.encode(fmt, preset, setting, i),
                                        range(len(self.photos))))
            self.cache[key] = (statistics.mean(q for q, _ in results), sum(n for _, n in results))
        return self.cache[key]

    def lowest_matching(self, fmt, preset, target):
        """The lowest setting 0-100 whose mean SSIM reaches `target` (SSIM grows with the
        setting), by bisection; 100 when none does."""
        low, high = 0, 100
        while low < high:
            middle = (low + high) // 2
            if self.measure(fmt, preset, middle)[0] >= target:
                high = middle
            else:
                low = middle + 1
        return low


# Photographs of Debian's wallpaper packages (lomiri-wallpapers-16.04 and -20.04 share a folder,
# plasma-workspace-wallpapers keeps one per picture); renders and paintings are left out.
PEER_PACKAGES = ("lomiri-wallpapers-16.04", "lomiri-wallpapers-20.04", "plasma-workspace-wallpapers")
NOT_PHOTOS = ("Fossa", "Painting-Colors", "greentock", "free_by", "summer_1am", "Autumn")


def assemble_peers():
    """The peers' corpus: every photograph of the three packages at about 3 MP, never JPEG-coded
    at that size (area average), kept as PNG (the reference) and PPM (what cjpeg reads)."""
    folder = os.path.join(CORPUS, "peers")
    if os.path.isdir(folder) and os.listdir(folder):
        return folder
    download = os.path.join(CORPUS, "peer-debs")
    os.makedirs(download, exist_ok=True)
    run(["apt-get", "download", *PEER_PACKAGES], cwd=download)
    tree = os.path.join(download, "x")
    for deb in os.listdir(download):
        if deb.endswith(".deb"):
            run(["dpkg-deb", "-x", os.path.join(download, deb), tree])
    photos = [os.path.join(tree, "usr/share/backgrounds", f)
              for f in os.listdir(os.path.join(tree, "usr/share/backgrounds"))]
    wallpapers = os.path.join(tree, "usr/share/wallpapers")
    photos += [os.path.join(wallpapers, name, "contents/images/2560x1600.jpg")
               for name in os.listdir(wallpapers)]
    os.makedirs(folder)
    for photo in sorted(p for p in photos if os.path.isfile(p) and p.endswith(".jpg")):
        if any(skip in photo for skip in NOT_PHOTOS):
            continue
        stem = os.path.join(folder, photo.split("/")[-4] if "wallpapers" in photo
                            else os.path.splitext(os.path.basename(photo))[0])
        for ext in ("png", "ppm"):
            run([TOOL, "convert", photo, f"{stem}.{ext}", "--megapixels", "3"])
    return folder


# JPEG encoders compared with the product's (cjpeg with the JPEG path's fixed arguments) at equal
# SSIM: libjpeg-turbo's own options (mozjpeg's default quantisation tables by N. Robidoux, 4:4:4,
# the float DCT, and arithmetic coding, which many viewers cannot open: shown for its size only).
ROBIDOUX = ("16 16 16 18 25 37 56 85 16 17 20 27 34 40 53 75 16 20 24 31 43 62 91 135 18 27 31 40 "
            "53 74 106 156 25 34 43 53 69 94 131 189 37 40 62 74 94 124 169 238 56 53 91 106 131 "
            "169 226 311 85 75 135 156 189 238 311 418")
PRODUCT_OPTIONS = ["-progressive", "-optimize", "-sample", "2x2"]
PEERS = {
    "cjpeg, Robidoux tables": ["-progressive", "-optimize", "-sample", "2x2", "-qtables", "@"],
    "cjpeg 4:4:4": ["-progressive", "-optimize", "-sample", "1x1"],
    "cjpeg -dct float": ["-progressive", "-optimize", "-sample", "2x2", "-dct", "float"],
    "cjpeg -arithmetic": ["-progressive", "-arithmetic", "-sample", "2x2"],
}


def peers(folder):
    """For each preset's JPEG number: the product's bytes and SSIMs there, and each peer's bytes
    at the same mean SSIM-Y and at the same mean SSIM over R, G, B (interpolated between the two
    qualities around it), as a ratio of the product's bytes."""
    stems = sorted(f[:-4] for f in os.listdir(folder) if f.endswith(".ppm"))
    tables = os.path.join(folder, "robidoux.txt")
    with open(tables, "w") as f:
        f.write(ROBIDOUX + "\n" + ROBIDOUX + "\n")
    cache = {}

    def measure(peer, quality):
        if (peer, quality) not in cache:
            def one(stem):
                out = os.path.join(folder, f"{stem}.{abs(hash(peer))}.{quality}.jpg")
                options = PRODUCT_OPTIONS if peer is None else PEERS[peer]
                run(["cjpeg", "-quality", str(quality),
                     *[tables if o == "@" else o for o in options], "-outfile", out,
                     os.path.join(folder, stem + ".ppm")])
                y, rgb = map(float, run([TOOL, "ssim", os.path.join(folder, stem + ".png"),
                                         out]).stdout.split())
                size = os.path.getsize(out)
                os.remove(out)
                return size, y, rgb
            with concurrent.futures.ThreadPoolExecutor(2) as pool:
                results = list(pool.map(one, stems))
            cache[(peer, quality)] = (sum(r[0] for r in results),
                                      statistics.mean(r[1] for r in results),
                                      statistics.mean(r[2] for r in results))
        return cache[(peer, quality)]

    def bytes_at(peer, index, target):
        """Bytes at the quality where the peer's SSIM (index 1: Y, 2: RGB) reaches `target`."""
        low, high = 30, 98
        while high - low > 1:
            middle = (low + high) // 2
            if measure(peer, middle)[index] >= target:
                high = middle
            else:
                low = middle
        a, b = measure(peer, low), measure(peer, high)
        t = 1.0 if b[index] == a[index] else (target - a[index]) / (b[index] - a[index])
        return a[0] + max(0.0, min(1.0, t)) * (b[0] - a[0])

    rows = []
    for preset, numbers in PRESET_QUALITIES.items():
        size, y, rgb = measure(None, numbers["jpeg"])
        row = [preset, numbers["jpeg"], size, y, rgb]
        for peer in PEERS:
            row.append((bytes_at(peer, 1, y) / size, bytes_at(peer, 2, rgb) / size))
        rows.append(row)
    return len(stems), rows


def calibrate(classes, lossless):
    """For each preset, the SSIM the JPEG path gives at the preset's JPEG number, and for each
    other encoder the lowest setting of its own that gives at least that SSIM: the anchors of the
    table in src/engine/encoders/quality_scale.cpp. Measured on the lossless versions of the
    typical photos: against a JPEG, cjpeg near the photo's own quality re-uses its grid and
    quantiser, which no other encoder can. The same settings on the camera JPEGs are shown
    beside them."""
    sources = [os.path.join(lossless, f) for f in sorted(os.listdir(lossless))]
    photos = [os.path.join(classes["typical"], f) for f in sorted(os.listdir(classes["typical"]))]
    rows = []
    with tempfile.TemporaryDirectory(dir=CORPUS) as tmp:
        for name in ("lossless", "jpeg"):
            os.makedirs(os.path.join(tmp, name))
        clean = EncoderSweep(sources, os.path.join(tmp, "lossless"))
        camera = EncoderSweep(photos, os.path.join(tmp, "jpeg"))
        for preset, numbers in PRESET_QUALITIES.items():
            target = clean.measure("jpeg", preset, numbers["jpeg"])[0]
            for fmt in ("jpeg", "webp", "avif", "heic", "png"):
                # pngquant keeps its own scale: shown at the preset's number.
                setting = (clean.lowest_matching(fmt, preset, target)
                           if fmt in ("webp", "avif", "heic") else numbers[fmt])
                rows.append((preset, fmt, numbers[fmt], setting,
                             *clean.measure(fmt, preset, setting),
                             *camera.measure(fmt, preset, setting)))
    return len(sources), rows


def quality(classes):
    """The real program on the typical photos for every preset and format: bytes, mean SSIM of
    the outputs against their photos, and CPU per megapixel against the floor's (one core)."""
    photos = [os.path.join(classes["typical"], f) for f in sorted(os.listdir(classes["typical"]))]
    megapixels = megapixels_of(photos)
    floors = []
    for _ in range(ROUNDS):
        with tempfile.TemporaryDirectory(dir=CORPUS) as tmp:
            floors.append(child_cpu(["bash", "-c", floor_chain(photos, tmp)])[0])
    floor = statistics.median(floors) / megapixels
    rows = []
    for preset in PRESET_QUALITIES:
        for fmt in ("jpeg", "webp", "avif", "heic", "png"):
            with tempfile.TemporaryDirectory(dir=CORPUS) as tmp:
                folder = os.path.join(tmp, "in")
                copy_files(photos, folder)
                cpu, _ = child_cpu([VELT, "--once", folder, "--original", "keep", "--preset", preset,
                                    "--format", fmt, "--jobs", "1"], fresh_env(tmp))
                before = after = written = 0
                ssims = []
                for photo in photos:
                    stem = os.path.splitext(os.path.basename(photo))[0]
                    before += os.path.getsize(photo)
                    outputs = [f for f in os.listdir(folder) if f.startswith(stem + "_veltcompressed.")]
                    if not outputs:
                        after += os.path.getsize(photo)  # already optimal: left as it was
                        continue
                    out = os.path.join(folder, outputs[0])
                    after += os.path.getsize(out)
                    written += 1
                    ssims.append(float(run([TOOL, "ssim", photo, out]).stdout.split()[0]))
                mean = statistics.mean(ssims) if ssims else float("nan")
                rows.append((preset, fmt, before, after, written, mean, cpu / megapixels))
    return len(photos), megapixels, floor, rows


def megapixels_of(files):
    total = 0.0
    for f in files:
        w, h = map(int, run([TOOL, "size", f]).stdout.split())
        total += w * h / 1e6
    return total


def mixed_folder(derived, classes, folder):
    """The typical 2–5 MP JPEGs plus the PNG, WebP and HEIC versions of the photographs (2–6 MP),
    each under a name of its own (sources sharing a base name go to one worker, which a real
    folder rarely asks for)."""
    os.makedirs(folder)
    sources = [os.path.join(classes["typical"], f) for f in sorted(os.listdir(classes["typical"]))]
    sources += [os.path.join(derived, f) for f in sorted(os.listdir(derived))
                if not f.endswith(".jpg")]
    for f in sources:
        stem, ext = os.path.splitext(os.path.basename(f))
        shutil.copy(f, os.path.join(folder, f"{stem}-{ext[1:]}{ext}"))
    return len(sources)


def jpeg_folder(classes, folder, copies=3):
    """The typical 2–5 MP JPEGs, each `copies` times under names of its own: a phone import."""
    os.makedirs(folder)
    sources = sorted(os.listdir(classes["typical"]))
    for copy in range(copies):
        for name in sources:
            shutil.copy(os.path.join(classes["typical"], name),
                        os.path.join(folder, f"{copy}-{name}"))
    return len(sources) * copies


def jobs_throughput(fill_folder, *options):
    """Wall time of --once --jobs 1 and --jobs 2 on the same folder, alternating, medians."""
    times = {1: [], 2: []}
    cpu = {1: [], 2: []}
    count = 0
    for round_number in range(ROUNDS):
        order = (1, 2) if round_number % 2 == 0 else (2, 1)
        for jobs in order:
            with tempfile.TemporaryDirectory(dir=os.path.join(ROOT, "bench", ".corpus")) as tmp:
                folder = os.path.join(tmp, "in")
                count = fill_folder(folder)
                before = resource.getrusage(resource.RUSAGE_CHILDREN)
                times[jobs].append(once(folder, fresh_env(tmp), "--jobs", str(jobs), *options))
                after = resource.getrusage(resource.RUSAGE_CHILDREN)
                cpu[jobs].append(after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime)
    one, two = statistics.median(times[1]), statistics.median(times[2])
    # Cores kept busy: --jobs 1 can already use more than one (encoders with threads of their own).
    return count, one, two, statistics.median(cpu[1]) / one, statistics.median(cpu[2]) / two


def parallel_ceiling(classes, copies=3):
    """What this machine gives two independent processes: cjpeg alone on the rasters of the JPEG
    folder's photos, the files split over two shell loops against one loop, alternating, medians.
    Two processes that share nothing still slow each other (caches, memory bandwidth, the host of
    a virtual machine), so no batch of ours can beat this ratio."""
    with tempfile.TemporaryDirectory(dir=CORPUS) as tmp:
        rasters = []
        for name in sorted(os.listdir(classes["typical"])):
            raster = os.path.join(tmp, name + ".ppm")
            with open(raster, "wb") as out:
                subprocess.run(["djpeg", "-pnm", os.path.join(classes["typical"], name)],
                               check=True, stdout=out)
            rasters.append(raster)
        rasters *= copies
        times = {1: [], 2: []}
        for round_number in range(ROUNDS):
            for streams in ((1, 2) if round_number % 2 == 0 else (2, 1)):
                loops = [[f"cjpeg {CJPEG_ARGUMENTS} -outfile {tmp}/o{s}-{i}.jpg {r}"
                          for i, r in enumerate(rasters[s::streams])] for s in range(streams)]
                started = time.monotonic()
                shells = [subprocess.Popen(["bash", "-ec", "\n".join(loop)]) for loop in loops]
                if any(shell.wait() != 0 for shell in shells):
                    sys.exit("cjpeg failed in the parallel ceiling")
                times[streams].append(time.monotonic() - started)
        return len(rasters), statistics.median(times[1]), statistics.median(times[2])


def idle_handled():
    """bench_scan_cost's idle figures (the real engine watching with inotify, every file already
    handled): CPU seconds per minute for unrelated files and for handled images."""
    output = run([SCAN_COST, "10000", str(IDLE_SECONDS)]).stdout.decode()
    rows = [line.split("|") for line in output.splitlines() if line.startswith("| ")]
    figures = [float(cells[5]) for cells in rows if len(cells) > 5 and cells[5].strip()[:1].isdigit()]
    return figures[0], figures[1]


def long_run():
    """bench_long_run's rows (a watcher after 1,000 photos compressed while watching, and a start
    on 100,000 handled images), each with its target."""
    output = run([LONG_RUN, "1000", "100000", str(max(IDLE_SECONDS, 60))]).stdout.decode()
    for line in output.splitlines():
        cells = [cell.strip() for cell in line.split("|")[1:-1]]
        if len(cells) != 3 or not cells[2][:1].isdigit():
            continue
        measure, quantity, value = cells
        target = 0.1 if quantity.startswith("idle") else 10 if quantity.startswith("CPU") else 0
        yield f"{measure}: {quantity}", value, target, float(value) <= target


def main():
    """Arguments name the parts to run (perfile, jobs, throughput, idle, longrun, memory,
    latency, savings, quality, peers, calibrate); none: all but calibrate, a sweep of its own."""
    everything = {"perfile", "jobs", "throughput", "idle", "longrun", "memory", "latency",
                  "savings", "quality", "peers"}
    parts = set(sys.argv[1:]) or everything
    everything.add("calibrate")
    if parts - everything:
        sys.exit(f"unknown part: {', '.join(sorted(parts - everything))}")
    for program in (VELT, TOOL):
        if not os.access(program, os.X_OK):
            sys.exit(f"missing {program}: build first (bench/run.sh does)")
    photos, derived = assemble_corpus()
    classes = assemble_sized(photos)
    print("| measure | result | target | met |")
    print("|---|---|---|---|", flush=True)
    if "perfile" in parts:
        base = os.path.join(CORPUS, "1mp.jpg")
        for name, label, target in (("typical", "typical 2–5 MP", 1.10), ("12mp", "12 MP", None),
                                    ("24mp", "20–24 MP", None)):
            if name not in os.environ.get("VELT_BENCH_SIZES", "typical 12mp 24mp").split():
                continue
            files = [os.path.join(classes[name], f) for f in sorted(os.listdir(classes[name]))]
            whole, whole_floor = whole_process_cost(files)
            limit = 1.3 if name == "typical" else 1.4
            print(f"| a {label} JPEG ({len(files)} photos), the whole --once process on one core "
                  f"(start-up included) vs djpeg \\| cjpeg, CPU, median of {ROUNDS} | "
                  f"{whole * 1000:.0f} ms vs {whole_floor * 1000:.0f} ms = "
                  f"{whole / whole_floor:.2f} | ≤ {limit} | "
                  f"{'yes' if whole / whole_floor <= limit else 'no'} |", flush=True)
            ours, floor = per_file_cost(files, base)
            ratio = ours / floor
            mp = megapixels_of(files) / len(files)
            verdict = ("yes" if ratio <= target else "no") if target else "(reported)"
            print(f"| one more JPEG, {label} ({len(files)} photos, mean {mp:.1f} MP), --once "
                  f"--format jpeg --jobs 1 vs djpeg \\| cjpeg, CPU on one core, marginal, median "
                  f"of {ROUNDS} | {ours * 1000:.0f} ms vs {floor * 1000:.0f} ms = {ratio:.2f} | "
                  f"{f'≤ {target:.2f}' if target else '—'} | {verdict} |", flush=True)
    if "jobs" in parts:
        for label, fill, options in (
                ("a mixed folder of {} files (JPEG, PNG, WebP, HEIC of 2–6 MP)",
                 lambda folder: mixed_folder(derived, classes, folder), ()),
                ("{} JPEGs of 2–5 MP (`--format jpeg`)",
                 lambda folder: jpeg_folder(classes, folder), ("--format", "jpeg"))):
            count, one, two, cores_one, cores_two = jobs_throughput(fill, *options)
            speedup = one / two
            print(f"| --once on {label.format(count)}, wall time, median of {ROUNDS}: --jobs 1 vs "
                  f"--jobs 2 (cores busy: {cores_one:.2f} vs {cores_two:.2f}) | {one:.2f} s vs "
                  f"{two:.2f} s = {speedup:.2f} × | ≥ 1.8 × | "
                  f"{'yes' if speedup >= 1.8 else 'no'} |", flush=True)
        count, one, two = parallel_ceiling(classes)
        print(f"| this machine's ceiling: cjpeg alone on the same {count} photos' rasters, one shell "
              f"loop vs two, wall time, median of {ROUNDS} | {one:.2f} s vs {two:.2f} s = "
              f"{one / two:.2f} × | — | — |", flush=True)
    if "throughput" in parts:
        count, megapixels, ours, floor = throughput(photos, derived)
        ratio = ours / floor
        print(f"| --once on {count} files ({megapixels:.0f} MP): time vs the same encoder commands "
              f"in a shell loop | {ours:.1f} s vs {floor:.1f} s = {ratio:.2f} | ≤ 1.25 | "
              f"{'yes' if ratio <= 1.25 else 'no'} |", flush=True)
    if "idle" in parts:
        cpu = idle_cpu()
        print(f"| CPU per minute, velt-compressor --watch on an idle folder of 10,000 unrelated "
              f"files | {cpu:.3f} s | ≤ 0.1 s | {'yes' if cpu <= 0.1 else 'no'} |", flush=True)
        unrelated, handled = idle_handled()
        print(f"| CPU per minute, the engine (bench_scan_cost) watching 10,000 unrelated files / "
              f"10,000 already-handled images | {unrelated:.3f} s / {handled:.3f} s | ≤ 0.1 s / "
              f"≤ 0.3 s | {'yes' if unrelated <= 0.1 and handled <= 0.3 else 'no'} |", flush=True)
    if "longrun" in parts:
        for measure, value, target, met in long_run():
            print(f"| {measure} | {value} | ≤ {target} | {'yes' if met else 'no'} |", flush=True)
    if "memory" in parts:
        peak, raster = peak_memory()
        print(f"| peak memory compressing one 48 MP JPEG | {peak / 1e6:.0f} MB = "
              f"{peak / raster:.2f} × raster | ≤ 2.5 × | {'yes' if peak <= 2.5 * raster else 'no'} |",
              flush=True)
    if "memory" in parts:
        pixels, rows = peak_memory_per_format()
        print()
        print(f"| 20.4 MP photo ({pixels * 4 / 1e6:.0f} MB raster) to | peak | × raster | ≤ 3 × "
              "| bytes per pixel | batch reserves |")
        print("|---|---|---|---|---|---|")
        for fmt, peak in rows:
            print(f"| {fmt} | {peak / 1e6:.0f} MB | {peak / (4 * pixels):.2f} | "
                  f"{'yes' if peak <= 12 * pixels else 'no'} | {peak / pixels:.1f} | "
                  f"{BATCH_ESTIMATE[fmt]} {'(covers it)' if peak <= BATCH_ESTIMATE[fmt] * pixels else '(too low)'} |",
                  flush=True)
    if "latency" in parts:
        latency = arrival_latency()
        print(f"| arrival to installed output, 1 MP JPEG, median of 20 | {latency:.2f} s | ≤ 2.5 s | "
              f"{'yes' if latency <= 2.5 else 'no'} |", flush=True)
    if "savings" in parts:
        print()
        print("| preset | format | bytes before | bytes after | saved | mean PSNR (dB) |")
        print("|---|---|---|---|---|---|")
        for preset, fmt, before, after, mean in savings(derived):
            print(f"| {preset} | {fmt} | {before} | {after} | "
                  f"{100 * (before - after) / before:.1f} % | {mean:.1f} |", flush=True)
    if "quality" in parts:
        count, megapixels, floor, rows = quality(classes)
        print()
        print(f"{count} photos of 2–5 MP ({megapixels:.1f} MP), --once --jobs 1 pinned to one core; "
              f"the floor (djpeg \\| cjpeg {CJPEG_ARGUMENTS}) takes {floor * 1000:.0f} ms per MP, "
              f"median of {ROUNDS}.")
        print()
        print("| preset | format | bytes before | bytes after | outputs | mean SSIM | CPU ms per MP "
              "| × floor |")
        print("|---|---|---|---|---|---|---|---|")
        for preset, fmt, before, after, written, mean, cpu in rows:
            print(f"| {preset} | {fmt} | {before} | {after} | {written}/{count} | {mean:.4f} | "
                  f"{cpu * 1000:.0f} | {cpu / floor:.1f} |", flush=True)
    if "peers" in parts:
        count, rows = peers(assemble_peers())
        print()
        print(f"{count} photographs of about 3 MP: the product's JPEG at each preset's number, and "
              f"each peer's bytes at the same mean SSIM on luma / over R, G, B, as a ratio of the "
              f"product's bytes.")
        print()
        print("| preset | number | bytes | SSIM-Y | SSIM-RGB | " + " | ".join(PEERS) + " |")
        print("|---|---|---|---|---|" + "---|" * len(PEERS))
        for preset, number, size, y, rgb, *ratios in rows:
            print(f"| {preset} | {number} | {size} | {y:.5f} | {rgb:.5f} | "
                  + " | ".join(f"{a:.3f} / {b:.3f}" for a, b in ratios) + " |", flush=True)
    if "calibrate" in parts:
        count, rows = calibrate(classes, assemble_lossless(photos))
        print()
        print(f"Encoder settings whose mean SSIM over the lossless versions of {count} photos "
              f"reaches the JPEG path's at each preset's JPEG number (png: pngquant at the "
              f"preset's number, unmapped); the same settings on the camera JPEGs beside them.")
        print()
        print("| preset | format | preset's number | encoder setting | mean SSIM | bytes "
              "| SSIM on the JPEGs | bytes on the JPEGs |")
        print("|---|---|---|---|---|---|---|---|")
        for preset, fmt, number, setting, mean, size, camera_mean, camera_size in rows:
            print(f"| {preset} | {fmt} | {number} | {setting} | {mean:.5f} | {size} | "
                  f"{camera_mean:.5f} | {camera_size} |", flush=True)


if __name__ == "__main__":
    main()
