#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the benchmark need, and nothing else.
# Idempotent: when everything is present it asks dpkg once and returns.
set -euo pipefail

packages=(
  # toolchain
  g++ cmake ninja-build pkg-config git python3
  # Qt 6: Core, Gui, Widgets, DBus, Network (qt6-base-dev) and Svg; libxcb for X11 startup
  # notification
  qt6-base-dev qt6-svg-dev libgl-dev libxcb1-dev
  # codecs, colour, crypto, compression, JSON
  libjpeg62-turbo-dev libpng-dev libwebp-dev libheif-dev liblcms2-dev libssl-dev zlib1g-dev
  # the update helper unpacks the portable bundle
  libarchive-dev
  nlohmann-json3-dev
  # the processed-file registry
  libsqlite3-dev
  # photo metadata (EXIF, XMP, IPTC) carried into outputs
  libexiv2-dev
  # tests (openssl makes the update tests' certificate authority)
  libgtest-dev libgmock-dev openssl
  # the external encoders the engine drives, and independent decoders the tests check with
  # (imagemagick also shows outputs as an orientation-honouring viewer does)
  libjpeg-turbo-progs webp pngquant libheif-examples pngcheck imagemagick
  # the independent metadata reader the tests check outputs with
  libimage-exiftool-perl
  # the crash campaign kills the program at chosen system calls
  strace
  # desktop test rigs: a virtual X server, a session bus and a notification daemon
  xvfb xauth dbus dbus-x11 notification-daemon
  # the tray rigs: a window manager, an XEmbed tray, pointer clicks and screenshots; a Wayland
  # compositor that runs without a screen, and the toolkit's Wayland platform
  openbox trayer xdotool weston qt6-wayland
  # release packages: cpack's dependency list, and the checks a .deb must pass
  dpkg-dev lintian desktop-file-utils appstream man-db
  # the portable bundle's libraries find each other through relative run paths
  patchelf
  # Qt's own dialogs and buttons in Russian (the program loads them for a Russian interface)
  qt6-translations-l10n
)
# Debian 13's libheif encodes HEIC and AVIF through plugins that it only recommends.
if [[ "$(. /etc/os-release && echo "${VERSION_CODENAME:-}")" != bookworm ]]; then
  packages+=(libheif-plugin-x265 libheif-plugin-aomenc)
fi

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "install-deps: installing ${missing[*]}" >&2
sudo_cmd=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "install-deps: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
