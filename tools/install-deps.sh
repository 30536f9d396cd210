#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need; skips what is present.
# `tools/install-deps.sh arm64`: what the aarch64 cross build needs (tools/install-deps-arm64.sh).
set -euo pipefail
if [ "${1:-}" = arm64 ]; then
    exec bash "$(dirname "$0")/install-deps-arm64.sh"
fi

# Packages whose recommends pull in far too much (OpenCV would bring a desktop) go without them.
lean=(libopencv-dev)
packages=(
    cmake g++ make pkg-config ccache
    libfmt-dev libspdlog-dev libhwy-dev nlohmann-json3-dev libcli11-dev libcpp-httplib-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    # zlib's crc32: a reference for the image files' checksum in the tests and benchmarks
    zlib1g-dev
    netpbm imagemagick
    # the viewer's browser tests drive headless Chromium through its WebDriver
    chromium chromium-driver fonts-dejavu-core
    python3-dev python3-pybind11 python3-numpy python3-pytest
    # archive analysis (pandas tables, Dask on all cores or a cluster); PDF reports read back as text
    python3-pandas python3-dask python3-distributed poppler-utils
    # the GStreamer plugin (gst/) and its pipeline tests; the RTSP server and H.264 for streaming
    libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools
    gstreamer1.0-plugins-base gstreamer1.0-plugins-good
    libgstrtspserver-1.0-dev gstreamer1.0-plugins-ugly gstreamer1.0-libav ffmpeg
)
packages+=(${NORDA_EXTRA_PACKAGES:-})

missing=()
for p in "${lean[@]}" "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null; then SUDO=sudo; else
        echo "install-deps: missing packages (${missing[*]}) and not root; install them and retry" >&2
        exit 1
    fi
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
lean_missing=(); other_missing=()
for p in "${missing[@]}"; do
    if [[ " ${lean[*]} " == *" $p "* ]]; then lean_missing+=("$p"); else other_missing+=("$p"); fi
done
if [ ${#lean_missing[@]} -gt 0 ]; then
    $SUDO apt-get install -y -qq --no-install-recommends "${lean_missing[@]}"
fi
if [ ${#other_missing[@]} -gt 0 ]; then
    $SUDO apt-get install -y -qq --no-install-recommends "${other_missing[@]}"
fi
