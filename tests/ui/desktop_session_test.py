#!/usr/bin/env python3
"""The desktop program on three real desktops, as a user meets it.

X11 with a window manager (openbox) and an XEmbed tray (trayer): the icon appears, a click
drops the panel with its tail under the icon, the keyboard opens a pop-up's list and Escape
closes the list before the panel, the right button opens the context menu, a failed file shows
a red badge for 4 seconds, later launches open the history or the panel of the running copy
or hand it a folder to watch, and the tray going and coming back turns the panel into a window
and back.

X11 with a StatusNotifierItem tray (tests/ui/sni_watcher stands in for the desktop's): the
program starts as a window, which compresses a photo and a folder dragged onto it from another
program (tests/ui/drag_source, as a file manager drags) beside them and reports a text file, the tray appearing later takes its item, which is titled "VELT |
Compressor", carries its menu in the interface language (rebuilt when compression is paused),
opens the panel at the point the tray was clicked and the settings from the menu.

Wayland (weston, headless): the panel opens as an ordinary window, never a frameless one.

Screenshots go to <build>/test-artifacts/desktop-*.png. Exits 77 (skipped) when a tool is
missing.

Usage: desktop_session_test.py PROGRAM SNI_WATCHER DRAG_SOURCE ARTIFACTS_DIR
"""
import glob
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

PROGRAM, WATCHER, DRAG_SOURCE, ARTIFACTS = sys.argv[1:5]
ICON_BLUE = (0x2B, 0x63, 0xE6)
RED = (0xD9, 0x3B, 0x30)


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
    """An X screenshot as rows of RGB tuples; with a name, also kept as ARTIFACTS/<name>.png."""

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

    def light(self, x, y):  # the panel is light on the black root window
        return sum(self.pixel(x, y)) > 300


class Session:
    def __init__(self):
        self.work = tempfile.mkdtemp()
        os.chmod(self.work, 0o700)  # also the runtime folder of weston and the program
        self.processes = []

    def spawn(self, args, **kwargs):
        kwargs.setdefault("stdout", subprocess.DEVNULL)
        kwargs.setdefault("stderr", subprocess.DEVNULL)
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


class Tray:
    """The status-notifier watcher stand-in, driven line by line."""

    def __init__(self, session):
        self.process = session.spawn([WATCHER], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     text=True, bufsize=1)
        self.expect("watching")

    def expect(self, start):
        line = self.process.stdout.readline().strip()
        if not line.startswith(start):
            fail(f"the tray said {line!r}, expected {start!r}")
        return line[len(start):].strip()

    def ask(self, command, answer):
        self.process.stdin.write(command + "\n")
        return self.expect(answer)

    def stop(self):
        self.process.terminate()
        self.process.wait(timeout=10)


def program_environment(session, name, folder, language):
    data = os.path.join(session.work, name)
    os.makedirs(data)
    with open(os.path.join(data, "native-config.json"), "w") as f:
        json.dump({"enabled": True, "language": language, "watchDirectory": "file://" + folder + "/"}, f)
    env = dict(os.environ, VELT_CONFIG_DIR=data, VELT_LOG_DIR=data, VELT_DEBUG_LOG="1",
               XDG_CONFIG_HOME=os.path.join(data, "xdg"), XDG_RUNTIME_DIR=session.work)
    env.pop("QT_QPA_PLATFORM", None)
    env.pop("WAYLAND_DISPLAY", None)
    return env, os.path.join(data, "native.log")


def log_count(path, text):
    try:
        with open(path, encoding="utf-8", errors="replace") as f:
            return f.read().count(text)
    except OSError:
        return 0


def visible_window(name):
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", name],
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout.split()
    return found[0] if found else None


def later_launch(env, *arguments):
    done = subprocess.run([PROGRAM, *arguments], env=env, timeout=20, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL)
    if done.returncode != 0:
        fail(f"the launch with {arguments} exited {done.returncode}")


def start_program(session, env, log):
    """The program, its standard error kept beside its log."""
    errors = open(os.path.join(os.path.dirname(log), "stderr.log"), "w")
    return session.spawn([PROGRAM], env=env, stderr=errors)


def stop(program, log):
    program.send_signal(signal.SIGTERM)
    code = program.wait(timeout=20)
    if code != 0:
        with open(os.path.join(os.path.dirname(log), "stderr.log"), errors="replace") as f:
            print(f.read()[-6000:])
        fail(f"the program did not end cleanly on SIGTERM ({code})")


def start_trayer(session):
    # In the middle of the screen's top edge, where the panel can centre its tail on the icon.
    return session.spawn(["trayer", "--edge", "top", "--align", "center", "--widthtype", "pixel",
                          "--width", "200", "--heighttype", "pixel", "--height", "48",
                          "--transparent", "false", "--SetDockType", "true", "--expand", "false"])


def painted(x, y, seconds=5, what="the panel"):
    """Waits until the point is light: without a compositor a window shows what lay beneath it
    until it has painted itself (later on a busy machine)."""
    wait_for(lambda: Screen().light(x, y), seconds, what + " painted")
    time.sleep(0.2)


def check_tail(name, cx, top, what):
    """Below `top` the panel begins with a narrow triangle centred on x = cx."""
    wait_for(lambda: any(Screen().light(cx, y) for y in range(top, top + 80)), 5,
             f"the panel under {what}")
    time.sleep(0.2)
    screen = Screen(name)
    apex = next((y for y in range(top, top + 80) if screen.light(cx, y)), None)
    if apex is None:
        fail(f"no panel under {what}")
    for depth in (3, 6):
        row = [x for x in range(screen.width) if screen.light(x, apex + depth)]
        if not (abs((min(row) + max(row)) / 2 - cx) <= 3 and max(row) - min(row) <= 28):
            fail(f"the tail at depth {depth} spans {min(row)}..{max(row)}, {what} at {cx}")
    return apex


def xembed_tray(session, folder):
    tray = start_trayer(session)
    env, log = program_environment(session, "xembed", folder, "english")
    program = start_program(session, env, log)
    wait_for(lambda: log_count(log, "Start watcher"), what="the program to start watching")
    icon = wait_for(lambda: Screen().find(ICON_BLUE, (0, 0, 1024, 60)), 15, "the tray icon")
    Screen("desktop-xembed-tray")
    xs, ys = [x for x, _ in icon], [y for _, y in icon]
    cx, cy = (min(xs) + max(xs)) // 2, (min(ys) + max(ys)) // 2

    subprocess.run(["xdotool", "mousemove", str(cx), str(cy), "click", "1"], check=True)
    wait_for(lambda: log_count(log, "Panel shown"), what="the panel after a click on the icon")
    apex = check_tail("desktop-panel-under-tray-icon", cx, 48, "the icon")
    # The keyboard: the third control is the preset pop-up; Space opens its list, the first
    # Escape closes the list only, the second the panel.
    subprocess.run(["xdotool", "key", "Tab", "Tab", "Tab", "space"], check=True)
    time.sleep(0.4)
    Screen("desktop-panel-list-open")
    subprocess.run(["xdotool", "key", "Escape"], check=True)
    time.sleep(0.4)
    if not Screen("desktop-panel-after-one-escape").light(cx, apex + 20):
        fail("Escape in the open list closed the panel too")
    subprocess.run(["xdotool", "key", "Escape"], check=True)
    wait_for(lambda: not Screen().light(cx, apex + 20), 3, "the panel to close on Escape")

    # The right button: the context menu, not the panel; its Settings entry opens the settings.
    subprocess.run(["xdotool", "mousemove", str(cx), str(cy), "click", "3"], check=True)
    time.sleep(0.5)
    Screen("desktop-xembed-context-menu")
    subprocess.run(["xdotool", "key", "Down", "Down", "Down", "Down", "Down", "Return"], check=True)
    wait_for(lambda: visible_window("^Settings"), 5, "the settings window from the menu")
    if log_count(log, "Panel shown") != 1:
        fail("the right button opened the panel")

    # A broken image: the failure notice turns the icon's badge red for 4 seconds.
    with open(os.path.join(folder, "broken.jpg"), "wb") as f:
        f.write(b"\xff\xd8\xff\xe0 not really a jpeg" * 10)
    box = (min(xs) - 2, min(ys) - 2, max(xs) + 3, max(ys) + 3)
    wait_for(lambda: Screen().find(RED, box), 20, "the red notice badge")
    shown = time.monotonic()
    Screen("desktop-tray-notice-badge")
    wait_for(lambda: not Screen().find(RED, box), 8, "the badge to expire")
    if time.monotonic() - shown < 3.0:
        fail("the notice left too early")

    # Later launches open a part of the running copy, or give it another folder, and end.
    later_launch(env, "--history")
    wait_for(lambda: visible_window("^Compression history"), 5, "the history window")
    other = os.path.join(session.work, "other photos")
    os.makedirs(other)
    later_launch(env, "--watch", other)
    wait_for(lambda: log_count(log, "Scan " + other), 5, "the running copy to watch DIR")

    # The tray goes: the panel becomes a window, reached by a later launch, and closing it keeps
    # the program running; the tray comes back: the icon is there again.
    tray.terminate()
    tray.wait(timeout=10)
    wait_for(lambda: log_count(log, "System tray now: none"), 10, "the tray to be missed")
    later_launch(env, "--show-panel")
    window = wait_for(lambda: visible_window(r"^VELT \| Compressor$"), 5, "the panel window")
    geometry = window_geometry(window)
    # Its quit row, at the bottom left, is light only once the window has painted itself.
    painted(geometry["X"] + 40, geometry["Y"] + geometry["HEIGHT"] - 15)
    Screen("desktop-panel-window-without-tray")
    subprocess.run(["xdotool", "windowactivate", "--sync", window, "key", "Escape"], check=True)
    wait_for(lambda: log_count(log, "Panel window closed; the program keeps running"), 5,
             "the window to close")
    tray = start_trayer(session)
    wait_for(lambda: log_count(log, "System tray now: XEmbed"), 10, "the tray to be found again")
    wait_for(lambda: Screen().find(ICON_BLUE, (0, 0, 1024, 60)), 10, "the icon back in the tray")
    stop(program, log)
    tray.terminate()
    tray.wait(timeout=10)


def window_geometry(window):
    shell = subprocess.run(["xdotool", "getwindowgeometry", "--shell", window],
                           stdout=subprocess.PIPE, text=True, check=True).stdout.split()
    geometry = dict(line.split("=") for line in shell)
    return {key: int(geometry[key]) for key in ("X", "Y", "WIDTH", "HEIGHT")}


def drop_onto_window(session, log):
    """Outside the watched folder: a photo and a folder with another one, and a text file, dragged
    from another program onto the panel's window and dropped there."""
    dropped = os.path.join(session.work, "dropped")
    inner = os.path.join(dropped, "album")
    os.makedirs(inner)
    for path in (os.path.join(dropped, "photo.jpg"), os.path.join(inner, "inner.jpg")):
        subprocess.run(["convert", "-size", "640x480", "plasma:", "-quality", "100", path],
                       check=True)
    with open(os.path.join(dropped, "notes.txt"), "w") as f:
        f.write("not an image")
    source = session.spawn([DRAG_SOURCE, os.path.join(dropped, "photo.jpg"), inner,
                            os.path.join(dropped, "notes.txt")], stdout=subprocess.PIPE, text=True)
    if source.stdout.readline().strip() != "shown":
        fail("the drag source did not start")
    target = window_geometry(visible_window(r"^VELT \| Compressor$"))
    start = window_geometry(wait_for(lambda: visible_window("^drag source$"), 5, "the drag source"))
    sx, sy = start["X"] + 60, start["Y"] + 60
    tx, ty = target["X"] + target["WIDTH"] // 2, target["Y"] + target["HEIGHT"] // 2
    subprocess.run(["xdotool", "mousemove", "--sync", str(sx), str(sy), "mousedown", "1", "sleep",
                    "0.4", "mousemove", str((sx + tx) // 2), str((sy + ty) // 2), "sleep", "0.4",
                    "mousemove", str(tx), str(ty), "sleep", "0.6", "mouseup", "1"], check=True)
    answer = source.stdout.readline().strip()
    if answer != "copy":
        fail(f"the window answered the drop with {answer!r}, not a copy")
    for output in ("photo_veltcompressed.jpg", "album/inner_veltcompressed.jpg"):
        path = os.path.join(dropped, output)
        wait_for(lambda: os.path.exists(path), 20, output + " beside the dropped photo")
        original = os.path.join(dropped, output.replace("_veltcompressed", ""))
        if os.path.getsize(path) >= os.path.getsize(original):
            fail(f"{output} is not smaller than its original")
    wait_for(lambda: log_count(log, "Dropped file is not an image notes.txt"), 5,
             "the text file reported")
    if sorted(os.listdir(dropped)) != ["album", "notes.txt", "photo.jpg",
                                      "photo_veltcompressed.jpg"]:
        fail(f"the drop left {sorted(os.listdir(dropped))}")


def status_notifier_tray(session, folder):
    env, log = program_environment(session, "sni", folder, "russian")
    program = start_program(session, env, log)
    wait_for(lambda: log_count(log, "Panel shown as a window"), what="the window without a tray")
    drop_onto_window(session, log)
    # The tray comes after the program, as at a login.
    tray = Tray(session)
    tray.expect("registered ")
    wait_for(lambda: log_count(log, "System tray now: StatusNotifierItem"), 5, "the tray in use")
    if tray.ask("properties", "title ") != "VELT | Compressor":
        fail("the item's title is not the program's name")
    tray.expect("id velt-compressor")
    tray.expect("menu /MenuBar")
    menu = "Показать панель|Приостановить сжатие|Открыть папку сжатия|История сжатий|Настройки|-|" \
           "Выйти из VELT | Compressor"
    if tray.ask("layout", "menu ") != menu:
        fail("the item's menu is not the program's, in its language")

    # A click on the item at a point: the panel's tail points there.
    tray.ask("activate 700 40", "activated")
    wait_for(lambda: log_count(log, "Panel shown") > log_count(log, "Panel shown as a window"), 5,
             "the panel at the tray's click")
    check_tail("desktop-panel-at-status-notifier-click", 700, 40, "the click")
    subprocess.run(["xdotool", "key", "Escape"], check=True)

    # The menu acts, and is made again from the program's state.
    tray.ask("click Приостановить сжатие", "clicked")
    wait_for(lambda: "Возобновить сжатие" in tray.ask("layout", "menu "), 5, "the menu to follow")
    tray.ask("click Настройки", "clicked")
    wait_for(lambda: visible_window("^Настройки"), 5, "the settings window from the menu")
    tray.stop()
    wait_for(lambda: log_count(log, "System tray now: none"), 10, "the tray to be missed")
    stop(program, log)


def wayland(session, folder):
    socket = "velt-wl"
    session.spawn(["weston", "--backend=headless-backend.so", "--socket=" + socket, "--width=1024",
                   "--height=700", "--debug", "--use-pixman", "--idle-time=0"],
                  env=dict(os.environ, XDG_RUNTIME_DIR=session.work))
    wait_for(lambda: os.path.exists(os.path.join(session.work, socket)), 10, "weston")
    tray = Tray(session)
    env, log = program_environment(session, "wayland", folder, "english")
    env.pop("DISPLAY", None)
    env.update(QT_QPA_PLATFORM="wayland", WAYLAND_DISPLAY=socket)
    if "ASAN_OPTIONS" in env:  # full stacks, so that the sanitizer's suppressions find the driver
        env["ASAN_OPTIONS"] += ":fast_unwind_on_malloc=0"
    program = start_program(session, env, log)
    tray.expect("registered ")
    tray.ask("activate 700 40", "activated")
    wait_for(lambda: log_count(log, "Panel shown as a window"), 10, "the panel as a window")
    time.sleep(0.6)
    shots = os.path.join(session.work, "shots")
    os.makedirs(shots)
    subprocess.run(["weston-screenshooter"], cwd=shots, timeout=10, check=True,
                   env=dict(os.environ, XDG_RUNTIME_DIR=session.work, WAYLAND_DISPLAY=socket))
    shot = glob.glob(os.path.join(shots, "*.png"))
    if not shot:
        fail("weston took no screenshot")
    shutil.copy(shot[0], os.path.join(ARTIFACTS, "desktop-wayland-panel-window.png"))
    if log_count(log, "Panel shown\n") or log_count(log, "abort"):
        fail("a frameless panel was shown on Wayland")
    stop(program, log)
    tray.stop()


def main():
    if os.environ.get("VELT_INSIDE_SESSION") != "1":
        for tool in ("dbus-run-session", "Xvfb", "openbox", "trayer", "xdotool", "import",
                     "weston", "weston-screenshooter"):
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
                           "1024x768x24"], pass_fds=(out.fileno(),))
        wait_for(lambda: open(display_file).read().strip(), what="Xvfb")
        os.environ["DISPLAY"] = ":" + open(display_file).read().strip()
        session.spawn(["openbox", "--sm-disable"])
        folder = os.path.join(session.work, "photos")
        os.makedirs(folder)
        started = time.monotonic()
        xembed_tray(session, folder)
        print(f"XEmbed tray: {time.monotonic() - started:.1f} s")
        started = time.monotonic()
        status_notifier_tray(session, folder)
        print(f"StatusNotifierItem tray: {time.monotonic() - started:.1f} s")
        started = time.monotonic()
        wayland(session, folder)
        print(f"Wayland: {time.monotonic() - started:.1f} s")
        print("desktop sessions: XEmbed, StatusNotifierItem and Wayland all work")
    finally:
        session.close()


if __name__ == "__main__":
    main()
