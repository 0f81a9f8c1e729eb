#!/usr/bin/env bash
# Distribution checks, run on demand (scripts/test.sh does not run them). As root, on Debian 12:
#   debian13  a Debian 13 (trixie) chroot made with debootstrap builds the checkout with its own
#             compiler and Qt, runs the suite, packs and checks the .deb for Debian 13
#             (tests/packaging/package_test.sh: lintian, install, upgrade, removal), then
#             installs that .deb, compresses real photographs with it and removes it again;
#   bundle    the portable bundle, made here from the checkout, runs in bare minbase chroots of
#             Debian 12 and Debian 13 that have none of its libraries: --version, --once on real
#             photographs, and the desktop program's launch smoke on the offscreen, xcb (Xvfb)
#             and wayland (headless weston) platforms, each loading nothing from outside the
#             bundle but the C and C++ runtime.
# The checkout's committed state plus its uncommitted changes to tracked files is what is
# checked. Chroots are kept as tarballs under .cache/dist/ (with the Debian 13 build's compiler
# cache), so later runs skip debootstrap and the package downloads.
# Usage: scripts/dist-check.sh [debian13] [bundle]   (both when none is named)
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD
cache=$repo/.cache/dist
stages=("$@")
[[ ${#stages[@]} -gt 0 ]] || stages=(debian13 bundle)

fail() {
  echo "dist-check: FAIL: $*" >&2
  exit 1
}
step() { echo "-- [$((SECONDS - started)) s] $*"; }
[[ $(id -u) -eq 0 ]] || fail "run as root: chroots need it"
started=$SECONDS

# What this script needs beyond the build's own packages.
host_packages=(debootstrap zstd weston)
./scripts/install-deps.sh
missing=()
for p in "${host_packages[@]}"; do
  [[ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)" == "install ok installed" ]] || missing+=("$p")
done
if [[ ${#missing[@]} -gt 0 ]]; then
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
./scripts/fetch-tools.sh

# The Debian archive this machine's apt already uses (its first non-security source), or
# debootstrap's own default when there is none.
host_mirror() {
  local file
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [[ -f "$file" ]] && awk '$1 == "deb" && $3 !~ /security/ { sub(/\[[^]]*\] */, ""); print $2; exit }' "$file"
  done
  for file in /etc/apt/sources.list.d/*.sources; do
    [[ -f "$file" ]] && awk '/^URIs:/ { uri = $2 } /^Suites:/ && $0 !~ /security/ && uri { print uri; exit }' "$file"
  done
}
mirror=$(host_mirror | grep -m1 '/debian/*$' || true)

mkdir -p "$cache"
work=$(mktemp -d /var/tmp/velt-dist.XXXXXX)
helpers=()
cleanup() {
  local status=$?
  local pid
  for pid in "${helpers[@]}"; do kill "$pid" 2>/dev/null || true; done
  findmnt -rno TARGET | grep "^$work/" | sort -r | while read -r target; do umount -l "$target" || true; done
  rm -rf --one-file-system "$work"
  exit $status
}
trap cleanup EXIT

# The system mounts a chroot needs for builds, tests and apt.
mount_system() {
  local dir=$1
  mount -t proc proc "$dir/proc"
  mount -t sysfs sysfs "$dir/sys"
  mount --rbind /dev "$dir/dev"
  mount --make-rslave "$dir/dev"
  cp -L /etc/resolv.conf "$dir/etc/resolv.conf"
}

# Runs a command in a chroot with a clean environment.
in_chroot() {
  local dir=$1
  shift
  chroot "$dir" /usr/bin/env -i HOME=/root LANG=C.UTF-8 TERM=dumb CI="${CI:-}" DEBIAN_FRONTEND=noninteractive \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin "$@"
}

# Makes DIR a chroot of SUITE from the tarball NAME in the cache, or with debootstrap (minbase)
# followed by SETUP (a function given DIR, may be empty), keeping the result as that tarball.
chroot_from_cache() {
  local suite=$1 dir=$2 name=$3 setup=${4:-}
  local tarball=$cache/$name.tar.zst
  mkdir -p "$dir"
  if [[ -f "$tarball" ]]; then
    tar -C "$dir" --numeric-owner -I zstd -xpf "$tarball"
    return
  fi
  debootstrap --variant=minbase "$suite" "$dir" $mirror >"$work/debootstrap-$name.log" 2>&1 ||
    { tail -20 "$work/debootstrap-$name.log" >&2; fail "debootstrap $suite"; }
  if [[ -n "$setup" ]]; then "$setup" "$dir"; fi
  in_chroot "$dir" apt-get clean
  tar -C "$dir" --numeric-owner --one-file-system -I "zstd -T0" -cpf "$tarball.part" . &&
    mv "$tarball.part" "$tarball"
}

# The checkout as committed plus the uncommitted changes of tracked files, into FOLDER.
copy_checkout() {
  local folder=$1 tree
  tree=$(git stash create)
  mkdir -p "$folder"
  git archive "${tree:-HEAD}" | tar -x -C "$folder"
  # Fetched once on this machine: the optional oxipng and the metadata tests' photographs.
  [[ -d .cache/tools ]] && mkdir -p "$folder/.cache" && cp -a .cache/tools "$folder/.cache/"
  [[ -d .cache/camera-photos ]] && mkdir -p "$folder/.cache" && cp -a .cache/camera-photos "$folder/.cache/"
  return 0
}

# Real photographs (1-20 MP JPEGs from Debian's lomiri-wallpapers-20.04, downloaded once into the
# cache) into FOLDER, with one of them also as a PNG stored without compression, as some screen
# and scanner tools write them: every one leaves room for a smaller output.
real_photos() {
  local folder=$1 photos=$cache/photos
  if [[ ! -f "$photos/.complete" ]]; then
    rm -rf "$photos" && mkdir -p "$photos/deb"
    (cd "$photos/deb" && apt-get download -q lomiri-wallpapers-20.04 >/dev/null 2>&1) ||
      fail "apt-get download lomiri-wallpapers-20.04"
    dpkg-deb -x "$photos"/deb/*.deb "$photos/deb/x"
    find "$photos/deb/x" -name "*.jpg" -exec cp {} "$photos/" \;
    rm -rf "$photos/deb"
    touch "$photos/.complete"
  fi
  mkdir -p "$folder"
  cp "$photos"/*.jpg "$folder/"
  convert "$photos/Fossa_by_Jasper_Roks.jpg" -define png:compression-level=0 "$folder/Fossa.png"
}

# Every SOURCE in FOLDER got NAME_veltcompressed.EXT that decodes and is smaller.
check_outputs() {
  local folder=$1 extension=$2 source output count=0
  for source in "$folder"/*.jpg "$folder"/*.png; do
    [[ "$source" == *_veltcompressed.* ]] && continue
    local base=${source%.*}
    local ext=${extension:-${source##*.}}
    output=${base}_veltcompressed.$ext
    [[ -f "$output" ]] || fail "no $(basename "$output")"
    case "$ext" in
      jpg) djpeg -outfile /dev/null "$output" ;;
      png) pngcheck -q "$output" >/dev/null ;;
      webp) dwebp -quiet "$output" -o /dev/null ;;
    esac || fail "$output does not decode"
    (($(stat -c %s "$output") < $(stat -c %s "$source"))) || fail "$output is not smaller"
    count=$((count + 1))
  done
  echo "   $count outputs decode and are smaller"
}

# ---------------------------------------------------------------------------- Debian 13 build
trixie_build_setup() {
  local dir=$1
  mount_system "$dir"
  cp scripts/install-deps.sh "$dir/root/install-deps.sh"
  in_chroot "$dir" bash /root/install-deps.sh >"$work/deps.log" 2>&1 ||
    { tail -30 "$work/deps.log" >&2; fail "the build's packages do not install on Debian 13"; }
  in_chroot "$dir" apt-get install -y -qq --no-install-recommends ccache >/dev/null
  umount -R -l "$dir/proc" "$dir/sys" "$dir/dev"
}

debian13() {
  local dir=$work/trixie-build key
  local begun=$SECONDS
  # A new package list makes a new chroot.
  key=$( (cat scripts/install-deps.sh && declare -f trixie_build_setup) | sha256sum | cut -c1-12)
  step "Debian 13 build chroot ($key)"
  chroot_from_cache trixie "$dir" "trixie-build-$key" trixie_build_setup
  mount_system "$dir"
  mkdir -p "$cache/ccache-trixie" "$dir/root/.ccache"
  mount --bind "$cache/ccache-trixie" "$dir/root/.ccache"
  copy_checkout "$dir/src"
  # Packages added to the list since the tarball was made are installed now.
  in_chroot "$dir" bash /src/scripts/install-deps.sh >"$work/deps.log" 2>&1 ||
    { tail -30 "$work/deps.log" >&2; fail "install-deps.sh in the chroot"; }
  in_chroot "$dir" sh -c 'g++ --version | head -1; dpkg-query -W -f="Qt \${Version}\n" libqt6core6t64'

  step "build with Debian 13's compiler (-Werror)"
  in_chroot "$dir" sh -c 'cd /src && cmake -S . -B build -G Ninja >/dev/null && cmake --build build' \
    >"$work/trixie-build.log" 2>&1 || { grep -E "error|FAILED" "$work/trixie-build.log" | head -40 >&2; fail "the build fails on Debian 13"; }
  step "the whole suite"
  in_chroot "$dir" sh -c 'cd /src && ctest --test-dir build --output-on-failure -j2' \
    >"$work/trixie-ctest.log" 2>&1 || { tail -60 "$work/trixie-ctest.log" >&2; fail "the suite fails on Debian 13"; }
  grep -E "tests passed|tests failed" "$work/trixie-ctest.log"

  step "the .deb for Debian 13 (package_test.sh: lintian, install, upgrade, removal)"
  in_chroot "$dir" sh -c 'cd /src && tests/packaging/package_test.sh build' \
    >"$work/trixie-package.log" 2>&1 || { tail -40 "$work/trixie-package.log" >&2; fail "the package checks fail on Debian 13"; }
  grep -E "^W: |^E: |all checks passed" "$work/trixie-package.log" || true
  local deb
  deb=$(ls "$dir"/src/build/packages/velt-compressor_*_amd64.deb)
  local depends
  depends=$(dpkg-deb -f "$deb" Depends)
  echo "   Depends: $depends"
  # Debian 13's names, as its shlibdeps gives them, never Debian 12's.
  [[ "$depends" == *libqt6core6t64* && "$depends" != *"libqt6core6 "* && "$depends" != *"libqt6core6,"* ]] ||
    fail "the .deb does not depend on Debian 13's Qt packages"

  step "install the .deb, compress real photographs with it, remove it"
  real_photos "$dir/root/photos"
  in_chroot "$dir" apt-get install -y -qq "/src/build/packages/$(basename "$deb")" \
    >"$work/trixie-install.log" 2>&1 || { tail -20 "$work/trixie-install.log" >&2; fail "apt cannot install the .deb"; }
  in_chroot "$dir" sh -c 'dpkg -L velt-compressor > /root/owned.txt; cd /root && velt-compressor --once photos' ||
    fail "--once on real photographs with the installed program"
  check_outputs "$dir/root/photos" ""
  in_chroot "$dir" apt-get remove --purge -y -qq velt-compressor >/dev/null
  local path
  while read -r path; do
    case "$path" in */velt-compressor* | */com.velt.compressor*) [[ ! -e "$dir$path" ]] || fail "$path is left after removal" ;; esac
  done <"$dir/root/owned.txt"
  mkdir -p "$cache/packages"
  cp "$deb" "$cache/packages/$(basename "$deb" .deb)+debian13.deb"
  echo "debian13: passed in $((SECONDS - begun)) s; the .deb is .cache/dist/packages/$(basename "$deb" .deb)+debian13.deb"
}

# ------------------------------------------------------------------------ the portable bundle
# The libraries the processes had the loader start (LD_DEBUG=libs in LOG) all come from ROOT
# (path prefixes, one a line), or are the C and C++ runtime; and the platform plugin NAME, when
# given, is among them.
loaded_only_from() {
  local log=$1 root=$2 plugin=${3:-} outside
  outside=$(sed -n 's/.*calling init: //p' "$log" | sort -u | grep -vF "$root" |
    grep -vE '/(ld-linux-x86-64|libc|libm|libmvec|libpthread|libdl|librt|libresolv|libutil|libanl|libnss_[a-z]+|libstdc\+\+|libgcc_s)\.so' || true)
  [[ -z "$outside" ]] || fail "loaded from outside the bundle: $outside"
  if [[ -n "$plugin" ]]; then
    grep -q "calling init: $root/lib/qt6/plugins/platforms/$plugin" "$log" || fail "the platform plugin $plugin was not loaded"
  fi
}

bundle_in() {
  local suite=$1 tarball=$2 dir=$work/$suite-bare
  local begun=$SECONDS
  step "a bare Debian chroot: $suite minbase"
  chroot_from_cache "$suite" "$dir" "$suite-minbase"
  local library
  for library in libQt6Core.so.6 libjpeg.so.62 liblcms2.so.2 libexiv2.so.27 libexiv2.so.28 \
      libarchive.so.13 libxcb.so.1 libwayland-client.so.0 libxkbcommon.so.0; do
    [[ ! -e "$dir/usr/lib/x86_64-linux-gnu/$library" ]] || fail "$suite minbase has $library"
  done
  for tool in cjpeg cwebp webpmux pngquant; do [[ ! -e "$dir/usr/bin/$tool" ]] || fail "$suite minbase has $tool"; done
  mount_system "$dir"
  bind_displays "$dir"
  local root=/opt/my\ apps/velt-compressor
  mkdir -p "$dir/opt/my apps"
  tar xzf "$tarball" -C "$dir/opt/my apps"
  local program=$root/bin/velt-compressor
  local run=(in_chroot "$dir" env VELT_CONFIG_DIR=/root/data VELT_LOG_DIR=/root/data LD_DEBUG=libs)

  version=$("${run[@]}" "$program" --version 2>"$work/ld.log") || fail "--version on $suite"
  echo "   $version"
  loaded_only_from "$work/ld.log" "$root"

  real_photos "$dir/root/photos"
  "${run[@]}" "$program" --once /root/photos --jobs 2 2>"$work/ld.log" >"$work/once.log" ||
    { cat "$work/once.log"; fail "--once on $suite"; }
  tail -1 "$work/once.log"
  loaded_only_from "$work/ld.log" "$root"
  check_outputs "$dir/root/photos" ""
  real_photos "$dir/root/webp"
  "${run[@]}" "$program" --once /root/webp --format webp 2>"$work/ld.log" >"$work/once.log" ||
    { cat "$work/once.log"; fail "--once --format webp on $suite"; }
  check_outputs "$dir/root/webp" webp

  local platform
  for platform in offscreen xcb wayland; do
    local env=(QT_QPA_PLATFORM=$platform VELT_LAUNCH_SMOKE=1)
    case $platform in
      xcb) env+=(DISPLAY=:$display) ;;
      wayland) env+=(XDG_RUNTIME_DIR=/run/velt-wayland WAYLAND_DISPLAY=velt-wayland) ;;
    esac
    rm -f "$dir/root/data/native.log"
    "${run[@]}" "${env[@]}" "$program" >"$work/smoke.log" 2>"$work/ld.log" ||
      { cat "$work/smoke.log"; grep -v "^ *[0-9]*:" "$work/ld.log"; fail "launch smoke on $platform, $suite"; }
    grep -q "Launch smoke complete" "$dir/root/data/native.log" || fail "no launch smoke on $platform, $suite"
    loaded_only_from "$work/ld.log" "$root" "libq${platform/wayland/wayland-generic}.so"
    echo "   launch smoke on $platform: passed"
  done

  # The program's hand-over to its update helper (src/update), done by hand: a copy of the
  # helper in a temporary folder, beside a link to the bundle's lib/, replaces the bundle with a
  # signed release (the same one here) once the given process has ended, checks the new program
  # and starts it again (its launch smoke).
  local copy=/tmp/VELTCompressor-Updater-check
  cp "$tarball" "$dir/root/update.tar.gz"
  cp "$tarball.sig" "$dir/root/update.tar.gz.sig"
  mkdir -p "$dir$copy"
  cp "$dir$root/libexec/velt-compressor/velt-updater" "$dir$copy/VELTUpdater"
  ln -s "$root/lib" "$dir$copy/lib"
  rm -f "$dir/root/data/native.log"
  "${run[@]}" QT_QPA_PLATFORM=offscreen VELT_LAUNCH_SMOKE=1 sh -c \
    'sleep 0 & wait $!; exec "$0" --pid $! --target "$1" --dmg /root/update.tar.gz --version "$2" --relaunch' \
    "$copy/VELTUpdater" "$root" "${version##* }" 2>"$work/ld.log" ||
    { cat "$dir/root/data/updater.log"; fail "the update helper failed on $suite"; }
  for _ in $(seq 100); do
    grep -qs "Launch smoke complete" "$dir/root/data/native.log" && break
    sleep 0.2
  done
  grep -qs "Launch smoke complete" "$dir/root/data/native.log" || fail "the updated bundle did not start on $suite"
  # The helper loads through its link, the checked and the restarted program from their bundle.
  loaded_only_from "$work/ld.log" "$copy/lib/"$'\n'"/opt/my apps/"
  echo "   $(tail -1 "$dir/root/data/updater.log")"
  echo "bundle on $suite: passed in $((SECONDS - begun)) s"
}

# A display for the xcb smoke (Xvfb) and a compositor for the wayland one (headless weston),
# both on this machine, reached from each chroot through bind mounts.
start_displays() {
  display=$((90 + RANDOM % 100))
  Xvfb ":$display" -nolisten tcp -screen 0 1280x800x24 >"$work/xvfb.log" 2>&1 &
  helpers+=($!)
  mkdir -m 0700 "$work/wayland"
  XDG_RUNTIME_DIR=$work/wayland weston --backend=headless-backend.so --socket=velt-wayland \
    --width=1280 --height=800 >"$work/weston.log" 2>&1 &
  helpers+=($!)
  for _ in $(seq 50); do
    [[ -S /tmp/.X11-unix/X$display && -S $work/wayland/velt-wayland ]] && return
    sleep 0.2
  done
  fail "Xvfb or weston did not start"
}

bind_displays() {
  local dir=$1
  mkdir -p "$dir/tmp/.X11-unix" "$dir/run/velt-wayland"
  mount --bind /tmp/.X11-unix "$dir/tmp/.X11-unix"
  mount --bind "$work/wayland" "$dir/run/velt-wayland"
}

bundle() {
  local begun=$SECONDS build=$repo/build-dist
  step "the portable bundle, built from this checkout in build-dist/"
  # A release key of this machine's own: the hand-over below installs a package signed with it.
  local key=$cache/release-key.pem
  [[ -f "$key" ]] || openssl genpkey -algorithm ed25519 -out "$key"
  cmake -S "$repo" -B "$build" -G Ninja -DVELT_BUILD_TESTS=OFF \
    -DVELT_UPDATE_PUBLIC_KEY="$(openssl pkey -in "$key" -pubout -outform DER | tail -c 32 | base64)" >/dev/null
  cmake --build "$build" >"$work/bundle-build.log" 2>&1 || { tail -30 "$work/bundle-build.log"; fail "build"; }
  rm -rf "$build/packages"
  local packing=$SECONDS
  cpack -G TGZ --config "$build/CPackConfig.cmake" -B "$build/packages" >"$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log"; fail "cpack"; }
  local tarball
  tarball=$(ls "$build"/packages/velt-compressor-*-linux-x86_64.tar.gz)
  scripts/sign-release.py --key "$key" --version "$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")" \
    --download "https://localhost/$(basename "$tarball")" "$tarball" >/dev/null 2>&1 || fail "sign-release.py"
  mkdir -p "$work/unpacked"
  tar xzf "$tarball" -C "$work/unpacked"
  echo "   $(basename "$tarball"): $(stat -c %s "$tarball" | awk '{ printf "%.1f", $1 / 1e6 }') MB packed," \
    "$(du -sb "$work/unpacked" | awk '{ printf "%.1f", $1 / 1e6 }') MB unpacked, made in $((SECONDS - packing)) s"
  start_displays
  local suite
  for suite in bookworm trixie; do
    bundle_in "$suite" "$tarball"
  done
  mkdir -p "$cache/packages"
  cp "$tarball" "$cache/packages/"
  echo "bundle: passed in $((SECONDS - begun)) s"
}

for stage in "${stages[@]}"; do
  case $stage in
    debian13) debian13 ;;
    bundle) bundle ;;
    *) fail "unknown stage $stage (debian13, bundle)" ;;
  esac
done
echo "dist-check: all checks passed in $((SECONDS - started)) s"
