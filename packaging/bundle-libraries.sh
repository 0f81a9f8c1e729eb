#!/usr/bin/env bash
# Makes an installed layout self-contained: the portable bundle then runs on a Linux system that
# has nothing of ours, only the C and C++ runtime (glibc, libstdc++, libgcc_s), which every
# current distribution has. Run by CPack on the staged bundle (packaging/bundle_libraries.cmake).
#   - the encoders the engine drives (cjpeg, cwebp, webpmux, pngquant) go into the tool folder
#     libexec/velt-compressor/bin/, which the program searches before the system's;
#   - Qt's plugins the program needs go into lib/qt6/plugins/ (xcb and wayland platforms, shell
#     and decoration plugins, input methods, SVG, TLS), found through bin/qt.conf, and libheif's
#     codec plugins, where it has them, into lib/libheif/plugins/; Qt's Russian translation into
#     share/qt6/translations/;
#   - every shared library these need, and the ones loaded by name at run time (libssl), goes
#     into lib/; every executable and library finds lib/ through a run path relative to itself
#     ($ORIGIN), so the folder works wherever it is unpacked;
#   - the copyright file of each Debian package a file came from goes into
#     share/doc/velt-compressor/bundled/<package>/.
# Usage: packaging/bundle-libraries.sh BUNDLE_ROOT
set -euo pipefail
root=$(realpath "$1")
tools=$root/libexec/velt-compressor/bin
lib=$root/lib
plugins=$lib/qt6/plugins
multiarch=$(gcc -print-multiarch 2>/dev/null || echo x86_64-linux-gnu)
qt_plugins=/usr/lib/$multiarch/qt6/plugins

fail() {
  echo "bundle-libraries: $*" >&2
  exit 1
}
command -v patchelf >/dev/null || fail "patchelf is missing (Debian package patchelf)"
[[ -x "$root/bin/velt-compressor" ]] || fail "$root/bin/velt-compressor is missing"

# The runtime every distribution has; bundling it would break the system's own loader.
system_runtime='^(ld-linux.*|linux-vdso|libc|libm|libmvec|libpthread|libdl|librt|libresolv|libutil|libanl|libnss_.*|libBrokenLocale|libthread_db|libstdc\+\+|libgcc_s)\.so'

mkdir -p "$tools" "$lib" "$plugins"
copied=()  # system files whose package's copyright comes along

for tool in cjpeg cwebp webpmux pngquant; do
  source=$(command -v "$tool") || fail "$tool is missing"
  install -m 0755 "$source" "$tools/$tool"
  copied+=("$(realpath "$source")")
done

# Plugin category, then file patterns in it. The server-buffer plugins of the wayland client
# folder serve a Qt compositor, and eglfs, vnc and the evdev inputs serve kiosks: all left out.
plugin_sets=(
  "platforms libqxcb.so libqwayland-generic.so libqwayland-egl.so libqoffscreen.so libqminimal.so"
  "xcbglintegrations *.so"
  "wayland-shell-integration *.so"
  "wayland-decoration-client *.so"
  "wayland-graphics-integration-client libqt-plugin-wayland-egl.so"
  "platforminputcontexts *.so"
  "platformthemes libqxdgdesktopportal.so"
  "imageformats libqsvg.so libqico.so"
  "iconengines *.so"
  "tls *.so"
)
for set in "${plugin_sets[@]}"; do
  read -r category patterns <<<"$set"
  for pattern in $patterns; do
    for plugin in "$qt_plugins/$category"/$pattern; do
      [[ -f "$plugin" ]] || continue
      mkdir -p "$plugins/$category"
      install -m 0644 "$plugin" "$plugins/$category/"
      copied+=("$plugin")
    done
  done
done
[[ -f "$plugins/platforms/libqxcb.so" ]] || fail "Qt's xcb platform plugin is missing (qt6-base)"
[[ -f "$plugins/platforms/libqwayland-generic.so" ]] || fail "Qt's wayland platform plugin is missing (qt6-wayland)"
[[ -f "$plugins/tls/libqopensslbackend.so" ]] || fail "Qt's OpenSSL backend is missing"

# From Debian 13 on libheif loads its codecs as plugins; the program points it at these
# (src/imageio/codec_plugins.h).
heif_plugins=/usr/lib/$multiarch/libheif/plugins
if [[ -d "$heif_plugins" ]]; then
  mkdir -p "$lib/libheif/plugins"
  for plugin in "$heif_plugins"/*.so; do
    install -m 0644 "$plugin" "$lib/libheif/plugins/"
    copied+=("$plugin")
  done
fi
plugin_files() { find "$plugins" "$lib/libheif" -name "*.so" 2>/dev/null; }

# ELF files with a dynamic section, among the given ones.
dynamic_elves() {
  local file
  for file in "$@"; do
    [[ -f "$file" && ! -L "$file" ]] || continue
    # Not grep -q: its early exit can end readelf with SIGPIPE and drop the file under pipefail.
    readelf -d "$file" 2>/dev/null | grep "(NEEDED)" >/dev/null && printf '%s\n' "$file"
  done
  return 0
}

# Qt's OpenSSL backend opens libssl by name when the first secure connection is made (and
# libcrypto; the program links that one anyway).
loaded_by_name=("libssl.so.3")

mapfile -t elves < <(dynamic_elves "$root/bin/velt-compressor" "$root"/libexec/velt-compressor/velt-updater \
  "$tools"/* $(plugin_files))
declare -A wanted=()
for name in "${loaded_by_name[@]}"; do
  # awk reads to the end: leaving early would kill ldconfig with SIGPIPE, fatal under pipefail.
  path=$(ldconfig -p | awk -v n="$name" '$1 == n && /x86-64/ && !found { print $NF; found = 1 }')
  [[ -n "$path" ]] || fail "$name is missing"
  wanted[$name]=$path
done
# ldd lists the whole closure of each file; the libraries loaded by name add their own.
while read -r name path; do
  [[ "$name" =~ $system_runtime ]] && continue
  [[ "$path" == /* ]] || fail "a library cannot be found: $name"
  wanted[$name]=$path
done < <(ldd "${elves[@]}" "${wanted[@]}" |
  awk '$2 == "=>" { print $1, $3 }' | sort -u)

for name in "${!wanted[@]}"; do
  real=$(realpath "${wanted[$name]}")
  install -m 0644 "$real" "$lib/$name"
  copied+=("$real")
done

# Qt's TLS backend tries the unversioned names first: where the system has them (its OpenSSL's
# development files) they must not win over the bundle's own.
ln -sf libssl.so.3 "$lib/libssl.so"
ln -sf libcrypto.so.3 "$lib/libcrypto.so"

# Every dynamic ELF file of the layout finds lib/ relative to its own folder.
mapfile -t elves < <(dynamic_elves "$root/bin/velt-compressor" "$root"/libexec/velt-compressor/velt-updater \
  "$tools"/* "$lib"/*.so* $(plugin_files))
for file in "${elves[@]}"; do
  relative=$(realpath --relative-to="$(dirname "$file")" "$lib")
  [[ "$relative" == "." ]] && runpath='$ORIGIN' || runpath="\$ORIGIN/$relative"
  # The program runs the update helper from a copy in a temporary folder, beside a link "lib" to
  # the bundle's lib/ (src/update).
  [[ "$file" == */velt-updater ]] && runpath="\$ORIGIN/lib:$runpath"
  patchelf --set-rpath "$runpath" "$file"
done

# Qt's own words in Russian (its dialogs and standard buttons; Debian's qt6-translations-l10n),
# where the build machine has them.
qt_translations=/usr/share/qt6/translations
if [[ -f $qt_translations/qtbase_ru.qm ]]; then
  mkdir -p "$root/share/qt6/translations"
  cp "$qt_translations/qtbase_ru.qm" "$root/share/qt6/translations/"
  copied+=("$qt_translations/qtbase_ru.qm")
fi

cat >"$root/bin/qt.conf" <<'EOF'
[Paths]
Prefix = ..
Plugins = lib/qt6/plugins
Translations = share/qt6/translations
EOF

# The licences of what came from Debian's packages.
doc=$root/share/doc/velt-compressor/bundled
mkdir -p "$doc"
# dpkg lists each file under the path its package installs it at: /usr/lib/… or /lib/….
for file in "${copied[@]}"; do
  printf '%s\n' "$file" "${file#/usr}" "/usr${file#/usr}"
done | sort -u >"$doc/.paths"
while read -r list; do
  package=$(basename "$list" .list)
  package=${package%%:*}
  [[ -f "/usr/share/doc/$package/copyright" ]] || continue
  mkdir -p "$doc/$package"
  install -m 0644 "/usr/share/doc/$package/copyright" "$doc/$package/copyright"
done < <(grep -lxF -f "$doc/.paths" /var/lib/dpkg/info/*.list)
rm "$doc/.paths"

echo "bundle-libraries: ${#wanted[@]} libraries, $(plugin_files | wc -l) plugins, 4 encoders"
