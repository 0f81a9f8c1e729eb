#!/usr/bin/env bash
# The release packages, checked the way a user meets them. Packs build/ (already built; nothing
# is recompiled) into the .deb and the portable bundle, then:
#   - the .deb passes lintian (no error, no warning beyond the accepted ones below), its menu
#     entry desktop-file-validate, its metainfo appstreamcli (man_page_test.sh renders the manual
#     page the .deb carries gzipped);
#   - the bundle is one folder velt-compressor/ with VELT-BUNDLE, and runs from anywhere, finding
#     the tools it ships beside itself;
#   - as root (or with passwordless sudo): an older version is installed with apt, used, and
#     upgraded; the installed program reports its version, compresses real images with the
#     Debian encoders and its own tool folder, has its manual page, and its user unit is
#     verified by systemd (or run by a stand-in where systemd is missing); removing the package
#     leaves nothing of it in /usr and the user's data untouched.
# Usage: tests/packaging/package_test.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build}
packages=$build/packages
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
deb=$PWD/$packages/velt-compressor_${version}_amd64.deb
bundle=$PWD/$packages/velt-compressor-${version}-linux-x86_64.tar.gz

# Lintian warnings we accept; README "Install" lists each with its reason. Any other warning, and
# any error, fails the check.
accepted_lintian_warnings=()

# The user's environment must not move the data folder the checks look at.
unset XDG_DATA_HOME XDG_CONFIG_HOME VELT_CONFIG_DIR VELT_LOG_DIR VELT_TOOL_DIR VELT_DEBUG_LOG

work=$(mktemp -d)
sudo_cmd=()
installed_by_us=false
libexec_created=()
cleanup() {
  local status=$?
  for ((i = ${#libexec_created[@]} - 1; i >= 0; i--)); do
    "${sudo_cmd[@]}" rm -rf "${libexec_created[$i]}"
  done
  if $installed_by_us; then
    "${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive apt-get remove -y -qq --purge \
      velt-compressor >/dev/null 2>&1 || true
  fi
  rm -rf "$work"
  exit $status
}
trap cleanup EXIT

fail() {
  echo "package test: FAIL: $*" >&2
  exit 1
}
step() { echo "-- [${SECONDS} s] $*"; }

# A photograph-like JPEG (smooth shapes, sensor noise) made by cjpeg at quality 97, and a
# truecolour PNG of a flat-colour drawing stored with light zlib: both leave room for compression
# with or without the optional oxipng.
make_images() {
  local folder=$1
  mkdir -p "$folder"
  python3 - "$work/photo.ppm" "$folder/drawing.png" <<'EOF'
import math, random, struct, sys, zlib
width, height = 320, 240
random.seed(7)
def photo(x, y):
    r = 128 + 100 * math.sin(x / 23.0) * math.cos(y / 31.0)
    g = 128 + 90 * math.sin((x + y) / 40.0)
    b = (x * y) % 256 * 0.3 + 60
    noise = random.randint(-6, 6)
    return bytes(max(0, min(255, int(v + noise))) for v in (r, g, b))
def drawing(x, y):
    if (x - 100) ** 2 + (y - 120) ** 2 < 70 ** 2:
        return bytes((224, 64, 48))
    if 180 < x < 300 and 40 < y < 200:
        return bytes((48, 112, 208)) if (x // 20 + y // 20) % 2 else bytes((240, 192, 32))
    return bytes((250, 248, 240 - y // 8))
rows = [b"".join(photo(x, y) for x in range(width)) for y in range(height)]
with open(sys.argv[1], "wb") as f:
    f.write(b"P6\n%d %d\n255\n" % (width, height) + b"".join(rows))
def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
raw = b"".join(b"\0" + b"".join(drawing(x, y) for x in range(width)) for y in range(height))
header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
with open(sys.argv[2], "wb") as f:
    f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 1))
            + chunk(b"IEND", b""))
EOF
  cjpeg -quality 97 -outfile "$folder/photo.jpg" "$work/photo.ppm"
}

decodes() {
  case "$1" in
    *.jpg) djpeg -outfile /dev/null "$1" ;;
    *.png) pngcheck -q "$1" >/dev/null ;;
    *.webp) dwebp -quiet "$1" -o /dev/null ;;
    *) return 1 ;;
  esac
}

# Runs `velt-compressor --once FOLDER ARGS...` under strace (which records the tools looked up and
# started) with its own data folder; checks the summary and that every SOURCE got an OUTPUT that
# decodes and is smaller. Usage: compress_once EXECUTABLE FOLDER "SRC:OUT SRC:OUT" [ARGS...]
compress_once() {
  local executable=$1 folder=$2 pairs=$3
  shift 3
  local data=$work/data-$RANDOM
  if ! VELT_CONFIG_DIR=$data VELT_LOG_DIR=$data strace -f -qq -e trace=%file \
      -o "$work/strace.log" "$executable" --once "$folder" "$@" >"$work/once.out" 2>"$work/once.err"; then
    cat "$work/once.out" "$work/once.err" >&2
    fail "$executable --once $folder $* failed"
  fi
  # Nothing alarming: no complaint about a missing optional tool, no error, no warning.
  [[ ! -s "$work/once.err" ]] || fail "--once wrote to standard error: $(cat "$work/once.err")"
  # (in either language: a fresh user's program speaks Russian)
  if grep -qiE "oxipng|error|warn|fail(ed)? [^0]|not found|^ошибка |с ошибкой [1-9]" "$work/once.out"; then
    fail "--once printed something alarming: $(cat "$work/once.out")"
  fi
  local pair source output
  for pair in $pairs; do
    source=$folder/${pair%%:*}
    output=$folder/${pair##*:}
    [[ -f "$output" ]] || fail "no $output: $(cat "$work/once.out")"
    decodes "$output" || fail "$output does not decode"
    (($(stat -c %s "$output") < $(stat -c %s "$source"))) || fail "$output is not smaller"
  done
}

# Whether the last run under strace started TOOL, or opened FILE (absolute paths).
started() { grep -qF "execve(\"$1\"" "$work/strace.log"; }
opened() { grep -F "\"$1\", " "$work/strace.log" | grep -qE "= [0-9]+$"; }

# The last run under strace loaded no shared library from outside FOLDER but the C and C++
# runtime, which the portable bundle leaves to the system.
only_bundle_libraries() {
  local outside
  outside=$(sed -nE 's/.*open(at)?\([^"]*"([^"]+\.so[.0-9]*)", .*\) = [0-9]+$/\2/p' "$work/strace.log" |
    grep -vF "$1/" | grep -vE '/(ld-linux-x86-64|libc|libm|libmvec|libpthread|libdl|librt|libresolv|libutil|libanl|libnss_[a-z]+|libstdc\+\+|libgcc_s)\.so' | sort -u || true)
  [[ -z "$outside" ]] || fail "libraries loaded from the system: $outside"
}

step "packing $build into the .deb and the bundle"
rm -rf "$packages"
cpack --config "$build/CPackConfig.cmake" -B "$packages" >"$work/cpack.log" ||
  { cat "$work/cpack.log" >&2; fail "cpack failed"; }
[[ -f "$deb" ]] || fail "no $deb"
[[ -f "$bundle" ]] || fail "no $bundle"

step "the .deb: fields and files"
depends=$(dpkg-deb -f "$deb" Depends)
[[ "$depends" == *libc6* && "$depends" == *libqt6core6* ]] || fail "Depends lacks the shared libraries: $depends"
[[ "$(dpkg-deb -f "$deb" Recommends)" == "libjpeg-turbo-progs, webp, pngquant, qt6-translations-l10n" ]] ||
  fail "Recommends: $(dpkg-deb -f "$deb" Recommends)"
dpkg-deb -x "$deb" "$work/deb"
for file in usr/bin/velt-compressor usr/share/applications/velt-compressor.desktop \
    usr/share/icons/hicolor/scalable/apps/velt-compressor.svg \
    usr/share/metainfo/com.velt.compressor.metainfo.xml usr/share/man/man1/velt-compressor.1.gz \
    usr/lib/systemd/user/velt-compressor.service usr/share/doc/velt-compressor/copyright \
    usr/share/doc/velt-compressor/changelog.gz; do
  [[ -f "$work/deb/$file" ]] || fail "the .deb lacks /$file"
done
if dpkg-deb -c "$deb" | grep -qE "VELT-BUNDLE|bin/oxipng"; then
  fail "the .deb carries the bundle marker or the prebuilt oxipng"
fi

step "lintian"
lintian "$deb" >"$work/lintian.log" 2>/dev/null || true
cat "$work/lintian.log"
if grep -q "^E: " "$work/lintian.log"; then fail "lintian reports errors"; fi
while read -r tag; do
  [[ " ${accepted_lintian_warnings[*]} " == *" $tag "* ]] || fail "lintian warning not accepted: $tag"
done < <(sed -n 's/^W: [^ ]* \([^ ]*\).*/\1/p' "$work/lintian.log" | sort -u)

step "desktop-file-validate, appstreamcli validate"
desktop-file-validate "$work/deb/usr/share/applications/velt-compressor.desktop" >"$work/desktop.log" 2>&1 ||
  { cat "$work/desktop.log"; fail "desktop-file-validate failed"; }
# Hints are advice (Graphics;Utility names two main categories, as wanted); nothing else may come.
if grep -v ": hint: " "$work/desktop.log" | grep -q .; then cat "$work/desktop.log"; fail "desktop-file-validate complains"; fi
appstreamcli validate --no-net "$work/deb/usr/share/metainfo/com.velt.compressor.metainfo.xml" ||
  fail "appstreamcli validate failed"

step "the portable bundle, unpacked into a folder with a blank in its name"
if tar tzf "$bundle" | grep -qvE "^velt-compressor/"; then fail "the bundle has more than one top folder"; fi
mkdir -p "$work/my apps"
tar xzf "$bundle" -C "$work/my apps"
home=$work/my\ apps/velt-compressor
[[ -f "$home/VELT-BUNDLE" && -x "$home/bin/velt-compressor" ]] || fail "the bundle lacks its marker or program"
[[ ! -e "$home/lib/systemd" ]] || fail "the bundle carries the systemd unit"
[[ "$("$home/bin/velt-compressor" --version)" == "VELT | Compressor $version" ]] || fail "bundle --version"
make_images "$work/bundle-images"
compress_once "$home/bin/velt-compressor" "$work/bundle-images" \
  "photo.jpg:photo_veltcompressed.jpg drawing.png:drawing_veltcompressed.png"
# The bundle carries its encoders and every library beyond the C and C++ runtime: its own are
# the ones run and loaded, though this machine has the same ones in /usr.
for tool in cjpeg pngquant oxipng; do
  [[ $tool == oxipng && ! -x "$home/libexec/velt-compressor/bin/oxipng" ]] && continue
  started "$home/libexec/velt-compressor/bin/$tool" || fail "the bundle's $tool was not used"
done
only_bundle_libraries "$home"
# The desktop program finds Qt's platform plugins inside the bundle.
VELT_LAUNCH_SMOKE=1 QT_QPA_PLATFORM=offscreen VELT_CONFIG_DIR=$work/smoke VELT_LOG_DIR=$work/smoke \
  strace -f -qq -e trace=%file -o "$work/strace.log" "$home/bin/velt-compressor" >/dev/null 2>&1 ||
  fail "the bundle's launch smoke failed"
opened "$home/lib/qt6/plugins/platforms/libqoffscreen.so" || fail "Qt did not load its platform plugin from the bundle"
opened "$home/share/qt6/translations/qtbase_ru.qm" || fail "Qt's Russian words were not loaded from the bundle"
only_bundle_libraries "$home"
# The program runs the update helper from a copy in a temporary folder beside a link to the
# bundle's lib/ (src/update); the copy starts with the bundle's libraries (it answers bad
# arguments with exit status 2).
mkdir "$work/helper-copy"
cp "$home/libexec/velt-compressor/velt-updater" "$work/helper-copy/VELTUpdater"
ln -s "$home/lib" "$work/helper-copy/lib"
status=0
strace -f -qq -e trace=%file -o "$work/strace.log" "$work/helper-copy/VELTUpdater" 2>/dev/null || status=$?
((status == 2)) || fail "the copied update helper did not start (status $status)"
opened "$work/helper-copy/lib/libarchive.so.13" || fail "the copied update helper did not load the bundle's libarchive"
only_bundle_libraries "$work/helper-copy/lib"

if [[ $(id -u) -ne 0 ]]; then
  if sudo -n true 2>/dev/null; then
    sudo_cmd=(sudo -n)
  else
    echo "package test: install checks skipped: they need root or passwordless sudo"
    exit 0
  fi
fi
if [[ "$(dpkg-query -W -f='${Status}' velt-compressor 2>/dev/null || true)" == "install ok installed" ]]; then
  echo "package test: install checks skipped: velt-compressor is already installed on this machine"
  exit 0
fi
# apt-get, waiting a little while another install holds the dpkg lock.
apt_get() {
  local attempt
  for attempt in 1 2 3 4 5 6 7 8; do
    if "${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -y -qq "$@" >"$work/apt.log" 2>&1; then
      return 0
    fi
    grep -qi "lock" "$work/apt.log" || break
    sleep 15
  done
  cat "$work/apt.log" >&2
  fail "apt-get $*"
}

step "apt installs an older version; a user uses it"
dpkg-deb -R "$deb" "$work/old"
sed -i 's/^Version: .*/Version: 0.9.0/' "$work/old/DEBIAN/control"
dpkg-deb --root-owner-group -b "$work/old" "$work/velt-compressor_0.9.0_amd64.deb" >/dev/null
installed_by_us=true
apt_get install "$work/velt-compressor_0.9.0_amd64.deb"
user_home=$work/user
make_images "$work/user-images"
HOME=$user_home /usr/bin/velt-compressor --once "$work/user-images" >/dev/null
data="$user_home/.local/share/velt compressor"
[[ -f "$data/processed-files.sqlite" ]] || fail "the program kept no registry in $data"
(cd "$data" && sha256sum ./*) >"$work/data.sum"

step "apt upgrades it to $version; the user's data stays"
apt_get install "$deb"
[[ "$(dpkg-query -W -f='${Version}' velt-compressor)" == "$version" ]] || fail "not upgraded"
(cd "$data" && sha256sum -c --quiet "$work/data.sum") || fail "the upgrade changed the user's data"

step "the installed program"
[[ "$(command -v velt-compressor)" == /usr/bin/velt-compressor ]] || fail "velt-compressor is not on PATH"
[[ "$(velt-compressor --version)" == "VELT | Compressor $version" ]] || fail "--version: $(velt-compressor --version)"
# Slim container images tell dpkg to leave manual pages out; elsewhere the page must be found.
man_pages=true
grep -qsr "^path-exclude.*/usr/share/man" /etc/dpkg/dpkg.cfg.d && man_pages=false
if ! $man_pages; then
  echo "package test: man -w skipped: this system's dpkg leaves manual pages out"
else
  [[ "$(man -w velt-compressor)" == /usr/share/man/man1/velt-compressor.1.gz ]] ||
    fail "man -w: $(man -w velt-compressor 2>&1 || true)"
fi
# The tool folder is found from /usr/bin: a cjpeg placed there is the one used. The .deb ships no
# oxipng, and the program says nothing about it.
tools=/usr/libexec/velt-compressor/bin
for dir in /usr/libexec/velt-compressor "$tools"; do
  [[ -d "$dir" ]] || { "${sudo_cmd[@]}" mkdir "$dir" && libexec_created+=("$dir"); }
done
[[ ! -e "$tools/oxipng" ]] || fail "$tools/oxipng is installed"
"${sudo_cmd[@]}" install -m 0755 "$(command -v cjpeg)" "$tools/cjpeg"
libexec_created+=("$tools/cjpeg")
make_images "$work/images"
compress_once /usr/bin/velt-compressor "$work/images" \
  "photo.jpg:photo_veltcompressed.jpg drawing.png:drawing_veltcompressed.png"
started "$tools/cjpeg" || fail "the installed program did not use its tool folder $tools"
started /usr/bin/pngquant || fail "the installed program did not use /usr/bin/pngquant"
make_images "$work/webp"
compress_once /usr/bin/velt-compressor "$work/webp" "photo.jpg:photo_veltcompressed.webp" --format webp
started /usr/bin/cwebp || fail "the installed program did not use /usr/bin/cwebp"
for ((i = ${#libexec_created[@]} - 1; i >= 0; i--)); do "${sudo_cmd[@]}" rm -rf "${libexec_created[$i]}"; done
libexec_created=()

unit=/usr/lib/systemd/user/velt-compressor.service
if command -v systemd-analyze >/dev/null; then
  step "systemd-analyze verify the user unit"
  mkdir -m 0700 "$work/runtime"
  status=0
  out=$(XDG_RUNTIME_DIR=$work/runtime systemd-analyze --user verify "$unit" 2>&1) || status=$?
  # Without manual pages the unit's Documentation= link cannot be followed; nothing else may fail.
  if ! $man_pages && [[ -z "$(grep -v "man velt-compressor(1)" <<<"$out")" ]]; then status=0 out=; fi
  ((status == 0)) && [[ -z "$out" ]] || fail "systemd-analyze verify: $out"
else
  step "no systemd: the unit's command run by a stand-in, stopped with SIGTERM"
  grep -qx "Type=simple" "$unit" || fail "the stand-in only knows Type=simple"
  read -r -a exec_start <<<"$(sed -n 's/^ExecStart=//p' "$unit")"
  watched=$work/watched
  server_home=$work/server
  mkdir -p "$watched" "$server_home"
  # The unit watches the saved folder: save one first, as its comment tells the user to.
  HOME=$server_home timeout -s TERM 3 velt-compressor --headless --watch "$watched" >/dev/null 2>&1 || true
  HOME=$server_home "${exec_start[@]}" >"$work/unit.log" 2>&1 &
  pid=$!
  cp "$work/images/photo.jpg" "$work/arriving.jpg"
  mv "$work/arriving.jpg" "$watched/arrived.jpg"
  for _ in $(seq 60); do
    [[ -f "$watched/arrived_veltcompressed.jpg" ]] && break
    kill -0 $pid 2>/dev/null || break
    sleep 0.5
  done
  [[ -f "$watched/arrived_veltcompressed.jpg" ]] || { cat "$work/unit.log"; fail "the unit's command compressed nothing"; }
  kill -TERM $pid
  wait $pid || fail "the unit's command did not stop cleanly on SIGTERM (status $?)"
  if ls -A "$watched" | grep -q "velt-temp"; then fail "a temporary file stayed after SIGTERM"; fi
fi

step "apt removes it: nothing of it stays in /usr, the user's data does"
dpkg -L velt-compressor >"$work/owned.txt"
apt_get remove --purge velt-compressor
installed_by_us=false
while read -r path; do
  [[ "$path" == /usr/* ]] || continue
  case "$path" in
    */velt-compressor* | */com.velt.compressor*) [[ ! -e "$path" ]] || fail "$path is left after removal" ;;
  esac
done <"$work/owned.txt"
for dir in /usr/libexec/velt-compressor /usr/share/velt-compressor /usr/share/doc/velt-compressor; do
  [[ ! -e "$dir" ]] || fail "$dir is left after removal"
done
(cd "$data" && sha256sum -c --quiet "$work/data.sum") || fail "removal changed the user's data"
echo "package test: all checks passed"
