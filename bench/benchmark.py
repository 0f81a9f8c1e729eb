#!/usr/bin/env python3
"""The VELT | Compressor benchmark: prints a Markdown table of measured figures.

Corpus: real photographs from Debian's lomiri-wallpapers-20.04 package (four JPEGs of 9 to 24
megapixels, fetched with apt-get download), plus PNG, WebP and HEIC versions derived from them at
a quarter of their size, plus synthetic pictures for the 48-megapixel and 1-megapixel cases.
Everything is assembled under bench/.corpus on the first run.
"""
import os
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


def fresh_env(tmp):
    env = dict(os.environ)
    env["VELT_CONFIG_DIR"] = os.path.join(tmp, "config")
    env["VELT_LOG_DIR"] = os.path.join(tmp, "config")
    env.pop("VELT_TOOL_DIR", None)
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


def peak_memory():
    with tempfile.TemporaryDirectory() as tmp:
        folder = os.path.join(tmp, "big")
        copy_files([os.path.join(CORPUS, "48mp.jpg")], folder)
        process = subprocess.Popen([VELT, "--once", folder, "--original", "keep"], env=fresh_env(tmp),
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        peak = 0
        while process.poll() is None:
            try:
                for line in open(f"/proc/{process.pid}/status"):
                    if line.startswith("VmHWM:"):
                        peak = max(peak, int(line.split()[1]) * 1024)
            except OSError:
                pass
            time.sleep(0.02)
    return peak, 8000 * 6000 * 4


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


def main():
    """Arguments name the parts to run (throughput, idle, memory, latency, savings); none: all."""
    parts = set(sys.argv[1:]) or {"throughput", "idle", "memory", "latency", "savings"}
    for program in (VELT, TOOL):
        if not os.access(program, os.X_OK):
            sys.exit(f"missing {program}: build first (bench/run.sh does)")
    photos, derived = assemble_corpus()
    print("| measure | result | target | met |")
    print("|---|---|---|---|", flush=True)
    if "throughput" in parts:
        count, megapixels, ours, floor = throughput(photos, derived)
        ratio = ours / floor
        print(f"| --once on {count} files ({megapixels:.0f} MP): time vs the same encoder commands "
              f"in a shell loop | {ours:.1f} s vs {floor:.1f} s = {ratio:.2f} | ≤ 1.25 | "
              f"{'yes' if ratio <= 1.25 else 'no'} |", flush=True)
    if "idle" in parts:
        cpu = idle_cpu()
        print(f"| CPU per minute watching an idle folder of 10,000 files | {cpu:.2f} s | ≤ 0.6 s | "
              f"{'yes' if cpu <= 0.6 else 'no'} |", flush=True)
    if "memory" in parts:
        peak, raster = peak_memory()
        print(f"| peak memory compressing one 48 MP JPEG | {peak / 1e6:.0f} MB = "
              f"{peak / raster:.2f} × raster | ≤ 2.5 × | {'yes' if peak <= 2.5 * raster else 'no'} |",
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


if __name__ == "__main__":
    main()
