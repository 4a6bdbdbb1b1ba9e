# Sourced by the build scripts: installs what a build needs and is missing (as root, with apt-get),
# and configures a build directory with Ninja unless it was configured already.

# ldp_install PKG... installs the named Debian packages.
ldp_install() {
   [ $# -gt 0 ] || return 0
   if [ "$(id -u)" != 0 ]; then
      echo "missing: $* (run as root, or install them first)" >&2
      return 1
   fi
   export DEBIAN_FRONTEND=noninteractive
   apt-get update -qq
   apt-get install -y -qq "$@"
}

# The tools that every build needs.
ldp_build_tools() {
   local need=()
   command -v cmake >/dev/null || need+=(cmake)
   command -v ninja >/dev/null || need+=(ninja-build)
   command -v g++ >/dev/null || need+=(g++)
   command -v python3 >/dev/null || need+=(python3)
   ldp_install "${need[@]}"
}

# ldp_configure DIR [CMAKE ARGS...]: Ninja for a new directory, the cached generator otherwise.
ldp_configure() {
   local dir=$1
   shift
   if [ -f "$dir/CMakeCache.txt" ]; then
      cmake -S . -B "$dir" "$@" >/dev/null
   else
      cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
   fi
}
