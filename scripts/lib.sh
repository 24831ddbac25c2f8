# shellcheck shell=bash disable=SC2034
# What the scripts share: the packages, the build, and the places outside the source tree.
# Sourced by bash with `set -euo pipefail`; `keldo_die_status` may be set before.

repo=$(unset CDPATH && cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)

installed_converter=/usr/keldo/bin/convert-thumb
installed_policy=/usr/keldo/share/convert-thumb/policy.xml
install_prefix=/usr/local/bin
installed_profile=/etc/keldothumb/thumb.conf
programs=(keldothumb keldothumbctl keldoindexplugind)

# Building and running. Each list names only what we use ourselves.
packages_run=(g++ cmake ninja-build pkg-config
  libjsoncpp-dev libexiv2-dev libheif-dev libinih-dev libsqlite3-dev libraw-dev libcli11-dev
  libhwy-dev libjpeg62-turbo-dev libpng-dev libtiff-dev libwebp-dev libgif-dev
  imagemagick libjpeg-turbo-progs dcraw libheif-examples)
packages_tests=(libgtest-dev libgmock-dev bubblewrap parallel python3
  chromium chromium-driver python3-selenium)
packages_lint=(git clang-format clang-tidy shellcheck)
packages_package=(dpkg-dev file gzip)
packages_package_check=(lintian mandoc mmdebstrap debian-archive-keyring bubblewrap)
packages_dev=(valgrind strace gdb)

say() { printf '%s\n' "$*"; }
warn() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }
die() {
  warn "$*"
  exit "${keldo_die_status:-1}"
}

# Runs a command as root; says what is missing when that is not possible.
as_root() {
  if ((EUID == 0)); then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo -- "$@"
  else
    warn "this needs root, and sudo is not installed: $*"
    return 1
  fi
}

# Prints those of the given packages that are not installed, one a line.
missing_packages() {
  local -A installed=()
  local status name
  while read -r status name; do
    [[ $status == installed ]] && installed[$name]=1
  done < <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' -- "$@" 2>/dev/null)
  for name in "$@"; do
    [[ -n ${installed[$name]:-} ]] || say "$name"
  done
}

packages_installed() { [[ -z $(missing_packages "$@") ]]; }

apt_get() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 \
    -o Acquire::Retries=3 "$@" </dev/null
}

# The lists may be absent (a new machine) or name versions that the mirror no longer has.
install_with_apt() {
  if compgen -G '/var/lib/apt/lists/*_Packages*' >/dev/null &&
    apt_get install -y --no-install-recommends "$@"; then
    return 0
  fi
  apt_get update && apt_get install -y --no-install-recommends "$@"
}

ensure_packages() {
  command -v dpkg-query >/dev/null || {
    warn "not a Debian system; install what corresponds to: $*"
    return 1
  }
  local missing
  mapfile -t missing < <(missing_packages "$@")
  ((${#missing[@]})) || return 0
  say "Installing: ${missing[*]}"
  install_with_apt "${missing[@]}"
}

# Says so where a folder cannot be written to, or made.
check_writable() {
  local folder=$1
  while [[ ! -e $folder ]]; do folder=${folder%/*}; done
  [[ -w $folder ]] || {
    warn "$folder cannot be written to; is it another user's?"
    return 1
  }
}

# Configures a preset where that was not done yet or its definition changed; everything else, ninja
# finds out by itself. Further arguments go to cmake.
configure() {
  local preset=$1 build=$repo/build/$1
  shift
  if [[ ! -f $build/build.ninja || $repo/CMakePresets.json -nt $build/build.ninja ]] ||
    ! cmp -s "$build/.configured" <(printf '%s\n' "$@"); then
    check_writable "$build" && (cd -- "$repo" && cmake --preset "$preset" "$@") || return
    printf '%s\n' "$@" >"$build/.configured"
  fi
}

# build PRESET [TARGET...]: everything, or the targets. Silent where there is nothing to do.
build() {
  local preset=$1
  shift
  ! ninja -C "$repo/build/$preset" -n "$@" 2>/dev/null | grep -q 'no work to do' || return 0
  check_writable "$repo/build/$preset" &&
    (cd -- "$repo" && cmake --build --preset "$preset" ${1:+--target "$@"})
}

# The tests are configured where what they need is installed, so that a machine that only runs the
# program needs no test library.
configure_release() {
  local tests=OFF
  packages_installed "${packages_tests[@]}" && tests=ON
  configure release "-DKELDO_BUILD_TESTS=$tests"
}

install_file() {
  local mode=$1 from=$2 to=$3
  as_root install -D -m "$mode" -- "$from" "$to" && say "Installed $to"
}

install_program() {
  local name
  for name in "${programs[@]}"; do
    cmp -s -- "$repo/build/release/bin/$name" "$install_prefix/$name" ||
      install_file 755 "$repo/build/release/bin/$name" "$install_prefix/$name" || return
  done
  # The profile file is the user's to edit once it is there.
  [[ -e $installed_profile || -L $installed_profile ]] ||
    install_file 644 "$repo/config/thumb.conf" "$installed_profile"
}

# Our converter, and what ImageMagick may do on its behalf. A link there is somebody's choice of
# another converter, and stays.
install_converter() {
  local built=$repo/build/release/bin/convert-thumb policy=$repo/config/convert-policy/policy.xml
  if [[ -L $installed_converter ]]; then
    [[ -e $installed_converter ]] || warn "$installed_converter leads to no program"
    return 0
  fi
  cmp -s -- "$built" "$installed_converter" || install_file 755 "$built" "$installed_converter" ||
    return
  cmp -s -- "$policy" "$installed_policy" || install_file 644 "$policy" "$installed_policy"
}
