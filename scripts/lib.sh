# shellcheck shell=bash disable=SC2034
# What the scripts share: the packages, the build, and the paths outside the source tree. Source it
# from bash with `set -euo pipefail`. Set `keldo_die_status` to change the exit status of die.

repo=$(unset CDPATH && cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)

installed_converter=/usr/keldo/bin/convert-thumb
installed_policy=/usr/keldo/share/convert-thumb/policy.xml
install_prefix=/usr/local/bin
installed_profile=/etc/keldothumb/thumb.conf
programs=(keldothumb keldothumbctl keldoindexplugind)

# For building and running. Each list names only what we use directly.
packages_run=(g++ cmake ninja-build pkg-config
  libjsoncpp-dev libexiv2-dev libheif-dev libsqlite3-dev libraw-dev libcli11-dev
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

# Runs a command as root, or says why it cannot.
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

# Prints the given packages that are not installed, one per line.
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

# The package lists may be missing (on a new machine) or outdated. Both are fixed by an update.
install_with_apt() {
  if compgen -G '/var/lib/apt/lists/*_Packages*' >/dev/null &&
    apt_get install -y --no-install-recommends "$@"; then
    return 0
  fi
  apt_get update && apt_get install -y --no-install-recommends "$@"
}

ensure_packages() {
  command -v dpkg-query >/dev/null || {
    warn "not a Debian system; install the equivalents of: $*"
    return 1
  }
  local missing
  mapfile -t missing < <(missing_packages "$@")
  ((${#missing[@]})) || return 0
  say "Installing: ${missing[*]}"
  install_with_apt "${missing[@]}"
}

# Fails with a message if a folder cannot be written to or created.
check_writable() {
  local folder=$1
  while [[ ! -e $folder ]]; do folder=${folder%/*}; done
  [[ -w $folder ]] || {
    warn "$folder is not writable; does it belong to another user?"
    return 1
  }
}

# Configures a preset if that was not done yet, or if its definition or arguments changed; ninja
# notices all other changes. Further arguments go to cmake.
configure() {
  local preset=$1 build=$repo/build/$1
  shift
  if [[ ! -f $build/build.ninja || $repo/CMakePresets.json -nt $build/build.ninja ]] ||
    ! cmp -s "$build/.configured" <(printf '%s\n' "$@"); then
    check_writable "$build" && (cd -- "$repo" && cmake --preset "$preset" "$@") || return
    printf '%s\n' "$@" >"$build/.configured"
  fi
}

# build PRESET [TARGET...]: builds everything, or the targets. Silent if there is nothing to do.
build() {
  local preset=$1
  shift
  ! ninja -C "$repo/build/$preset" -n "$@" 2>/dev/null | grep -q 'no work to do' || return 0
  check_writable "$repo/build/$preset" &&
    (cd -- "$repo" && cmake --build --preset "$preset" ${1:+--target "$@"})
}

# Configures the tests only if the packages that they need are installed, so that a machine that
# only runs the program needs no test library.
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
  # An existing profile file belongs to the user.
  [[ -e $installed_profile || -L $installed_profile ]] ||
    install_file 644 "$repo/config/thumb.conf" "$installed_profile"
}

# Installs our converter and the policy for ImageMagick. A link in its place is somebody's choice of
# another converter, and is kept.
install_converter() {
  local built=$repo/build/release/bin/convert-thumb policy=$repo/config/convert-policy/policy.xml
  if [[ -L $installed_converter ]]; then
    [[ -e $installed_converter ]] || warn "$installed_converter is a broken link"
    return 0
  fi
  cmp -s -- "$built" "$installed_converter" || install_file 755 "$built" "$installed_converter" ||
    return
  cmp -s -- "$policy" "$installed_policy" || install_file 644 "$policy" "$installed_policy"
}
