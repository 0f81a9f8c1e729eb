#!/usr/bin/env python3
"""Crash campaign: the real program is killed with SIGKILL at chosen system calls (strace fault
injection) and at random moments while it compresses a mixed folder, and then run again.

After every kill:
  - every original is byte-identical at its place or in the backup folder;
  - no visible image and no backup is truncated or undecodable (independent decoders).
After the rerun:
  - every image is in its final state (replace: compressed by this program, with its original in
    the backups; keep: one decodable output beside each source);
  - no file of ours is left hidden (no ".velt-temp" / ".velt-replace" name anywhere);
  - nothing was compressed twice (the output's marker names the untouched original's digest).

Usage: crash_campaign.py BINARY [--random N] [--syscall-points K] [--seed S] [--quiet]
Exit code 0 when every run kept every promise; the figures are printed at the end.
"""

import argparse
import hashlib
import json
import os
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import zlib

MARKER_ATTRIBUTE = "user.velt-compressor"
SOURCES = ["a.jpg", "b.png", "c.webp", "d.heic", "e.jpg"]


def ppm(width, height, seed):
    rows = bytearray()
    for y in range(height):
        for x in range(width):
            rows += bytes(((x * 3 + y + seed) % 256, (y * 2 + seed * 7) % 256, (x ^ y) % 256))
    return b"P6\n%d %d\n255\n" % (width, height) + bytes(rows)


def png(width, height, seed):
    raw = bytearray()
    for y in range(height):
        raw.append(0)
        for x in range(width):
            raw += bytes(((x + seed) % 256, (y * 3) % 256, (x * y + seed) % 256))

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(bytes(raw)))
            + chunk(b"IEND", b""))


def make_corpus(folder):
    work = tempfile.mkdtemp()
    try:
        for index, name in enumerate(SOURCES):
            path = os.path.join(folder, name)
            source_ppm = os.path.join(work, "%d.ppm" % index)
            source_png = os.path.join(work, "%d.png" % index)
            with open(source_ppm, "wb") as f:
                f.write(ppm(240, 180, index))
            with open(source_png, "wb") as f:
                f.write(png(240, 180, index))
            if name.endswith(".jpg"):
                subprocess.run(["cjpeg", "-quality", "97", "-outfile", path, source_ppm], check=True)
            elif name.endswith(".png"):
                shutil.copy(source_png, path)
            elif name.endswith(".webp"):
                subprocess.run(["cwebp", "-quiet", "-q", "98", source_ppm, "-o", path], check=True)
            else:
                subprocess.run(["heif-enc", "-q", "95", "-o", path, source_png], check=True,
                               stdout=subprocess.DEVNULL)
    finally:
        shutil.rmtree(work)


def digest(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


def decodes(path):
    lower = path.lower()
    if lower.endswith((".jpg", ".jpeg")):
        command = ["djpeg", "-outfile", os.devnull, path]
    elif lower.endswith(".webp"):
        command = ["dwebp", "-quiet", path, "-ppm", "-o", os.devnull]
    elif lower.endswith(".png"):
        command = ["pngcheck", "-q", path]
    elif lower.endswith((".heic", ".heif", ".avif")):
        out = tempfile.mktemp(suffix=".png")
        ok = subprocess.run(["heif-convert", path, out], stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL).returncode == 0
        if os.path.exists(out):
            os.unlink(out)
        return ok
    else:
        return True
    return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0


def all_files(folder):
    for root, _, names in os.walk(folder):
        for name in names:
            yield os.path.join(root, name)


def is_ours_hidden(name):
    return name.startswith(".") and (".velt-temp" in name or ".velt-replace" in name)


def marker(path):
    try:
        return json.loads(os.getxattr(path, MARKER_ATTRIBUTE))
    except OSError:
        return None


class Campaign:
    def __init__(self, binary, quiet):
        self.binary = binary
        self.quiet = quiet
        self.runs = 0
        self.failures = []
        self.originals_lost = 0
        self.hidden_after_rerun = 0
        self.double_compressions = 0
        self.undecodable = 0
        self.killed = 0

    def environment(self, data):
        env = dict(os.environ)
        env["VELT_CONFIG_DIR"] = data
        env["VELT_LOG_DIR"] = data
        env.pop("VELT_LAUNCH_SMOKE", None)
        return env

    def arguments(self, folder, policy, fmt):
        return [self.binary, "--once", folder, "--original", policy, "--format", fmt]

    def fail(self, label, what):
        self.failures.append("%s: %s" % (label, what))
        if not self.quiet:
            print("FAIL", label, what, flush=True)

    def check_after_kill(self, label, folder, originals):
        present = {}
        for path in all_files(folder):
            name = os.path.basename(path)
            if is_ours_hidden(name):
                continue
            present.setdefault(digest(path), path)
            if not decodes(path):
                self.undecodable += 1
                self.fail(label, "undecodable after kill: " + path)
        for name, value in originals.items():
            if value not in present:
                self.originals_lost += 1
                self.fail(label, "original lost after kill: " + name)

    def check_after_rerun(self, label, folder, originals, policy):
        for path in all_files(folder):
            if is_ours_hidden(os.path.basename(path)):
                self.hidden_after_rerun += 1
                self.fail(label, "left hidden after rerun: " + path)
        present = {digest(p) for p in all_files(folder)}
        for name, value in originals.items():
            if value not in present:
                self.originals_lost += 1
                self.fail(label, "original lost after rerun: " + name)
        visible = [p for p in os.listdir(folder) if not p.startswith(".")]
        for name in visible:
            path = os.path.join(folder, name)
            if not decodes(path):
                self.undecodable += 1
                self.fail(label, "undecodable after rerun: " + name)
            if policy != "replace":
                continue
            mark = marker(path)
            if mark is None:
                # Left as it was (already optimal, or the original itself): must be an original.
                if digest(path) not in originals.values():
                    self.fail(label, "neither an original nor an output of ours: " + name)
                continue
            if mark.get("sourceDigest") not in originals.values():
                self.double_compressions += 1
                self.fail(label, "compressed from something other than an original: " + name)
        if policy == "keep":
            for name in originals:
                base = name.rsplit(".", 1)[0]
                outputs = [v for v in visible if v.startswith(base) and "_veltcompressed" in v]
                if len(outputs) > 1:
                    self.fail(label, "more than one output for %s: %s" % (name, outputs))

    def one_run(self, label, policy, fmt, launcher):
        """Kills one run as `launcher` decides, checks, reruns, checks."""
        self.runs += 1
        with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryDirectory() as data:
            make_corpus(folder)
            originals = {name: digest(os.path.join(folder, name)) for name in SOURCES}
            env = self.environment(data)
            launcher(self.arguments(folder, policy, fmt), env)
            self.check_after_kill(label, folder, originals)
            rerun = subprocess.run(self.arguments(folder, policy, fmt), env=env,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=300)
            if rerun.returncode not in (0, 1):
                self.fail(label, "rerun exit code %d" % rerun.returncode)
            self.check_after_rerun(label, folder, originals, policy)

    def syscall_kill(self, syscall, when):
        def launch(arguments, env):
            result = subprocess.run(
                ["strace", "-f", "-qq", "-o", os.devnull, "-e", "trace=" + syscall, "-e",
                 "inject=%s:signal=KILL:when=%d" % (syscall, when)] + arguments,
                env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=300)
            self.killed += result.returncode == -9
        return launch

    def random_kill(self, delay):
        def launch(arguments, env):
            process = subprocess.Popen(arguments, env=env, stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL)
            time.sleep(delay)
            process.kill()
            self.killed += process.wait() == -9
        return launch


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("binary")
    parser.add_argument("--random", type=int, default=20)
    parser.add_argument("--syscall-points", type=int, default=6)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--quiet", action="store_true")
    options = parser.parse_args()
    for tool in ("strace", "cjpeg", "cwebp", "heif-enc", "djpeg", "dwebp", "heif-convert",
                 "pngcheck"):
        if shutil.which(tool) is None:
            print("crash campaign: %s is missing" % tool)
            return 77
    rng = random.Random(options.seed)
    campaign = Campaign(os.path.abspath(options.binary), options.quiet)
    modes = [("replace", "automatic"), ("replace", "jpeg"), ("keep", "webp"), ("keep", "automatic")]

    # Every rename, link and unlink point of a run, and a spread of write points.
    started = time.time()
    for policy, fmt in modes:
        for syscall in ("renameat2", "unlink", "link"):
            for when in range(1, options.syscall_points + 1):
                campaign.one_run("%s/%s %s#%d" % (policy, fmt, syscall, when), policy, fmt,
                                 campaign.syscall_kill(syscall, when))
        for when in sorted(rng.sample(range(1, 400), min(options.syscall_points, 399))):
            campaign.one_run("%s/%s write#%d" % (policy, fmt, when), policy, fmt,
                             campaign.syscall_kill("write", when))

    # Random moments over the length of a whole run.
    with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryDirectory() as data:
        make_corpus(folder)
        begin = time.time()
        subprocess.run(campaign.arguments(folder, "replace", "automatic"),
                       env=campaign.environment(data), stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        duration = max(time.time() - begin, 0.2)
    for index in range(options.random):
        policy, fmt = modes[index % len(modes)]
        delay = rng.uniform(0.0, duration * 1.1)
        campaign.one_run("%s/%s at %.3fs" % (policy, fmt, delay), policy, fmt,
                         campaign.random_kill(delay))

    print("crash campaign: %d runs, %d of them killed mid-way, in %.0f s"
          % (campaign.runs, campaign.killed, time.time() - started))
    print("  originals lost: %d" % campaign.originals_lost)
    print("  photos hidden after the rerun: %d" % campaign.hidden_after_rerun)
    print("  double compressions: %d" % campaign.double_compressions)
    print("  undecodable images: %d" % campaign.undecodable)
    print("  failures: %d" % len(campaign.failures))
    for failure in campaign.failures[:30]:
        print("   ", failure)
    return 1 if campaign.failures else 0


if __name__ == "__main__":
    sys.exit(main())
