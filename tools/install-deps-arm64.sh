#!/usr/bin/env bash
# What the aarch64 cross build needs (called by `tools/install-deps.sh arm64`): Debian's cross
# compiler and user-mode emulator on the host, and an arm64 sysroot made of Debian's arm64 packages.
#
# Debian's multiarch cannot hold OpenCV's image codecs for two architectures at once (their GDAL
# and GDCM dependencies are not co-installable), so the arm64 packages are unpacked into a sysroot
# of their own instead of beside the host's packages: the same kind of tree a camera maker's SDK
# provides, used the same way (cmake/aarch64-linux-gnu.cmake, QEMU_LD_PREFIX), and the host's own
# packages stay untouched. Its package lists live in a private apt state next to it.
#
# The sysroot: $NORDA_ARM64_SYSROOT, by default /opt/nordalib/sysroot-arm64 (root) or
# ~/.cache/nordalib/sysroot-arm64. Rebuilt only when the package set below changes.
set -euo pipefail

if [ "$(id -u)" -eq 0 ]; then default_root=/opt/nordalib; else default_root=$HOME/.cache/nordalib; fi
sysroot=${NORDA_ARM64_SYSROOT:-$default_root/sysroot-arm64}
state=$sysroot.apt

host_packages=(g++-aarch64-linux-gnu qemu-user)
# Headers, link-time files and CMake/pkg-config descriptions, taken without their own -dev
# dependencies; the libraries they describe are taken with everything they need at run time.
dev_packages=(
    libopencv-core-dev libopencv-imgproc-dev libopencv-imgcodecs-dev libopencv-calib3d-dev
    libopencv-features2d-dev libopencv-flann-dev
    libfmt-dev libspdlog-dev libhwy-dev libgtest-dev libgmock-dev
    libcpp-httplib-dev libssl-dev zlib1g-dev libbrotli-dev
    nlohmann-json3-dev libcli11-dev
)
runtime_packages=(libc6 libstdc++6)

say() { echo "install-deps (arm64): $*"; }
fail() {
    echo "install-deps (arm64): $*" >&2
    exit 1
}

# 1. The host's cross compiler and emulator, through apt like every other dependency.
missing=()
for p in "${host_packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    SUDO=""
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "missing ${missing[*]}: install them (apt-get install ${missing[*]}) and retry"
        SUDO=sudo
    fi
    say "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    $SUDO apt-get update -qq
    $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" ||
        fail "could not install ${missing[*]}: install them (apt-get install ${missing[*]}) and retry"
fi

# 2. The sysroot, skipped when it holds this package set already.
stamp=$sysroot/.nordalib-packages
wanted="${dev_packages[*]} | ${runtime_packages[*]}"
if [ -f "$stamp" ] && [ "$(head -n1 "$stamp")" = "$wanted" ]; then
    exit 0
fi
mkdir -p "$state/lists/partial" "$state/cache/archives/partial" "$state/debs" ||
    fail "cannot create $state: set NORDA_ARM64_SYSROOT to a writable place"
: >"$state/status"
apt_arm64=(-o "Dir::State=$state" -o "Dir::State::Lists=$state/lists" -o "Dir::State::Status=$state/status"
    -o "Dir::Cache=$state/cache" -o APT::Architecture=arm64 -o "APT::Architectures::=arm64"
    -o APT::Sandbox::User=root -o Debug::NoLocking=1)
say "reading Debian's arm64 package lists"
apt-get "${apt_arm64[@]}" update -qq ||
    fail "could not read Debian's arm64 package lists (network or /etc/apt/sources.list)"

# Run-time libraries named by the -dev packages, then everything those need (first alternatives).
runtime=("${runtime_packages[@]}")
for p in "${dev_packages[@]}"; do
    while read -r dep; do
        [[ $dep == *-dev || $dep == \<* || $dep == catch2 || $dep == googletest ]] || runtime+=("$dep")
    done < <(apt-cache "${apt_arm64[@]}" depends --no-recommends --no-suggests --no-conflicts --no-breaks \
        --no-replaces --no-enhances --no-pre-depends "$p" | awk '/^  Depends:/ {print $2}')
done
closure=$(apt-get "${apt_arm64[@]}" install -s --no-install-recommends "${runtime[@]}" | awk '/^Inst/ {print $2}') ||
    fail "arm64 packages missing from Debian's lists: ${runtime[*]}"
# shellcheck disable=SC2207
all=($(printf '%s\n' $closure "${dev_packages[@]}" | sort -u))
say "downloading ${#all[@]} arm64 packages"
(cd "$state/debs" && apt-get "${apt_arm64[@]}" download -qq "${all[@]}") ||
    fail "could not download the arm64 packages: ${dev_packages[*]}"

say "unpacking them into $sysroot"
rm -rf "$sysroot"
mkdir -p "$sysroot/usr/lib" "$sysroot/usr/bin" "$sysroot/usr/sbin"
for d in lib bin sbin; do ln -s "usr/$d" "$sysroot/$d"; done # merged /usr, as Debian 12 has it
for p in "${all[@]}"; do
    deb=$(ls "$state/debs/${p}"_*.deb | head -n1)
    dpkg-deb --fsys-tarfile "$deb" | tar -x -C "$sysroot" --keep-directory-symlink --no-same-owner
done
# Absolute links would point into the host: make them relative to the sysroot.
while IFS= read -r link; do
    target=$(readlink "$link")
    ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$sysroot$target")" "$link"
done < <(find "$sysroot" -type l -lname '/*')
# Links the packages' install scripts would make: BLAS and LAPACK are chosen through alternatives.
for lib in "$sysroot"/usr/lib/aarch64-linux-gnu/{blas,lapack}/lib*.so.[0-9]; do
    [ -e "$lib" ] && [ ! -e "$(dirname "$(dirname "$lib")")/$(basename "$lib")" ] &&
        ln -s "$(basename "$(dirname "$lib")")/$(basename "$lib")" "$(dirname "$(dirname "$lib")")/"
done
printf '%s\n' "$wanted" "${all[@]}" >"$stamp"
say "sysroot ready: $sysroot ($(du -sh "$sysroot" | cut -f1))"
