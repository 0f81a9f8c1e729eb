#!/usr/bin/env python3
"""The desktop program in a real X session, as a user meets it.

XEmbed tray (Xvfb + trayer): the icon appears in the tray, a click on it opens the panel with
its tail under the icon, and a failed file's notice shows as a red badge that is gone 4 seconds
later. StatusNotifierItem tray (a watcher owned by tests/ui/sni_watcher): the item registers
and Activate opens the panel. A second launch shows the first one's panel and ends at once.
Screenshots go to <build>/test-artifacts/. Exits 77 (skipped) when a tool is missing.

Usage: desktop_session_test.py PROGRAM SNI_WATCHER ARTIFACTS_DIR
"""
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

PROGRAM, WATCHER, ARTIFACTS = sys.argv[1:4]
ICON_BLUE = (0x2B, 0x63, 0xE6)


def fail(message):
    print("FAIL:", message)
    try:
        Screen("desktop-failure")
    except Exception:  # the screen may be gone already
        pass
    sys.exit(1)


def wait_for(predicate, seconds=15.0, what="condition"):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        result = predicate()
        if result:
            return result
        time.sleep(0.1)
    fail(f"timed out waiting for {what}")


class Screen:
    """A screenshot as rows of RGB tuples; with a name, also kept as ARTIFACTS/<name>.png."""

    def __init__(self, name=None):
        # A kept screenshot is the very picture the test analyses: grabbed once, read back.
        grab = ["import", "-silent", "-window", "root", "-depth", "8", "ppm:-"]
        if name:
            os.makedirs(ARTIFACTS, exist_ok=True)
            kept = os.path.join(ARTIFACTS, name + ".png")
            subprocess.run(["import", "-silent", "-window", "root", kept], check=True,
                           stderr=subprocess.DEVNULL)
            grab = ["convert", kept, "-depth", "8", "ppm:-"]
        raw = subprocess.run(grab, check=True, stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL).stdout
        parts = raw.split(b"\n", 3)  # P6, "W H", max, data
        self.width, self.height = map(int, parts[1].split())
        self.data = parts[3]

    def pixel(self, x, y):
        i = (y * self.width + x) * 3
        return tuple(self.data[i:i + 3])

    def find(self, color, box, tolerance=40):
        """Pixels inside box (x0, y0, x1, y1) close to color."""
        x0, y0, x1, y1 = box
        return [(x, y) for y in range(y0, min(y1, self.height)) for x in range(x0, min(x1, self.width))
                if all(abs(a - b) <= tolerance for a, b in zip(self.pixel(x, y), color))]


class Session:
    def __init__(self):
        self.work = tempfile.mkdtemp()
        self.processes = []

    def spawn(self, args, **kwargs):
        process = subprocess.Popen(args, **kwargs)
        self.processes.append(process)
        return process

    def close(self):
        for process in reversed(self.processes):
            if process.poll() is None:
                process.terminate()
                try:
                    process.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    process.kill()
        shutil.rmtree(self.work, ignore_errors=True)


def program_environment(session, name, folder):
    data = os.path.join(session.work, name)
    os.makedirs(data)
    with open(os.path.join(data, "native-config.json"), "w") as f:
        json.dump({"enabled": True, "language": "english", "watchDirectory": "file://" + folder + "/"}, f)
    env = dict(os.environ, VELT_CONFIG_DIR=data, VELT_LOG_DIR=data, VELT_DEBUG_LOG="1",
               XDG_CONFIG_HOME=os.path.join(data, "xdg"))
    env.pop("QT_QPA_PLATFORM", None)
    return env, os.path.join(data, "native.log")


def log_has(path, text):
    try:
        with open(path, encoding="utf-8", errors="replace") as f:
            return f.read().count(text)
    except OSError:
        return 0


def xembed_tray(session, folder):
    # In the middle of the screen's top edge, where the panel can centre its tail on the icon.
    tray = session.spawn(["trayer", "--edge", "top", "--align", "center", "--widthtype", "pixel",
                          "--width", "200", "--heighttype", "pixel", "--height", "48",
                          "--transparent", "false", "--SetDockType", "true", "--expand", "false"],
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    time.sleep(1.0)
    env, log = program_environment(session, "xembed", folder)
    program = session.spawn([PROGRAM], env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_for(lambda: log_has(log, "Start watcher"), what="the program to start watching")
    icon = wait_for(lambda: Screen().find(ICON_BLUE, (0, 0, 1024, 60)), 15, "the tray icon")
    Screen("desktop-xembed-tray")
    xs = [x for x, _ in icon]
    ys = [y for _, y in icon]
    cx, cy = (min(xs) + max(xs)) // 2, (min(ys) + max(ys)) // 2
    print(f"tray icon at {min(xs)}..{max(xs)} x {min(ys)}..{max(ys)}")

    subprocess.run(["xdotool", "mousemove", str(cx), str(cy), "click", "1"], check=True)
    wait_for(lambda: log_has(log, "Panel shown"), what="the panel after a click on the icon")
    time.sleep(0.5)
    screen = Screen("desktop-panel-under-tray-icon")
    # The tail: below the tray strip, the panel begins with a narrow triangle centred on the icon.
    def is_panel(x, y):  # the panel is light on the black root window
        return sum(screen.pixel(x, y)) > 300
    apex = next((y for y in range(48, 120) if is_panel(cx, y)), None)
    if apex is None:
        fail("no panel under the icon")
    for depth in (3, 6):
        row = [x for x in range(screen.width) if is_panel(x, apex + depth)]
        if not (abs((min(row) + max(row)) / 2 - cx) <= 3 and max(row) - min(row) <= 28):
            fail(f"the tail at depth {depth} spans {min(row)}..{max(row)}, icon centre {cx}")
    # Escape closes it.
    subprocess.run(["xdotool", "key", "Escape"], check=True)

    # A broken image: the failure notice turns the icon's badge red for 4 seconds.
    with open(os.path.join(folder, "broken.jpg"), "wb") as f:
        f.write(b"\xff\xd8\xff\xe0 not really a jpeg" * 10)
    box = (min(xs) - 2, min(ys) - 2, max(xs) + 3, max(ys) + 3)
    red = wait_for(lambda: Screen().find((0xD9, 0x3B, 0x30), box), 20, "the red notice badge")
    shown = time.monotonic()
    Screen("desktop-tray-notice-badge")
    print(f"badge shown with {len(red)} red pixels")
    wait_for(lambda: not Screen().find((0xD9, 0x3B, 0x30), box), 8, "the badge to expire")
    elapsed = time.monotonic() - shown
    if elapsed < 3.0:
        fail(f"the notice left after {elapsed:.1f} s")

    # A second launch shows the running one's panel and ends.
    second = subprocess.run([PROGRAM], env=env, timeout=20, stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)
    if second.returncode != 0:
        fail(f"the second launch exited {second.returncode}")
    wait_for(lambda: log_has(log, "Panel shown") >= 2, what="the panel shown for a second launch")

    program.send_signal(signal.SIGTERM)
    if program.wait(timeout=20) != 0:
        fail("the program did not end cleanly on SIGTERM")
    tray.terminate()
    tray.wait(timeout=10)


def status_notifier_tray(session, folder):
    watcher = session.spawn([WATCHER], stdout=subprocess.PIPE, text=True)
    if watcher.stdout.readline().strip() != "watching":
        fail("the watcher did not start")
    env, log = program_environment(session, "sni", folder)
    program = session.spawn([PROGRAM], env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    registered = watcher.stdout.readline().strip()
    if not registered.startswith("registered "):
        fail(f"the tray item did not register: {registered!r}")
    activated = watcher.stdout.readline().strip()
    if not activated.startswith("activated "):
        fail(f"Activate failed: {activated!r}")
    wait_for(lambda: log_has(log, "Panel shown"), what="the panel after Activate")
    time.sleep(0.5)
    Screen("desktop-panel-from-status-notifier")
    program.send_signal(signal.SIGTERM)
    if program.wait(timeout=20) != 0:
        fail("the program did not end cleanly on SIGTERM")


def main():
    if os.environ.get("VELT_INSIDE_SESSION") != "1":
        for tool in ("dbus-run-session", "Xvfb", "trayer", "xdotool", "import"):
            if not shutil.which(tool):
                print(f"skipped: {tool} is not installed")
                sys.exit(77)
        env = dict(os.environ, VELT_INSIDE_SESSION="1")
        sys.exit(subprocess.run(["dbus-run-session", "--", sys.executable] + sys.argv, env=env).returncode)
    session = Session()
    try:
        display_file = os.path.join(session.work, "display")
        with open(display_file, "w") as out:
            session.spawn(["Xvfb", "-displayfd", str(out.fileno()), "-nolisten", "tcp", "-screen", "0",
                           "1024x768x24"], pass_fds=(out.fileno(),), stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL)
        wait_for(lambda: open(display_file).read().strip(), what="Xvfb")
        os.environ["DISPLAY"] = ":" + open(display_file).read().strip()
        folder = os.path.join(session.work, "photos")
        os.makedirs(folder)
        xembed_tray(session, folder)
        status_notifier_tray(session, folder)
        print("desktop session: tray icon, panel, notice, single instance and status notifier all work")
    finally:
        session.close()


if __name__ == "__main__":
    main()
