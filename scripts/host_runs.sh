# Sourced by the checks that run the example projects on several platforms: where the projects are
# laid out and what the Linux library makes of them. The caller stands in the root of the repository.

# Each example by itself, as "FOLDER/NAME" of its control files.
example_projects() {
  find examples -mindepth 2 -maxdepth 2 -name '*.ctl' -printf '%P\n' | sort | sed 's|\.ctl$||'
}

# The two that one process adjusts one after another, the second without closing the library.
two_runs=(aerial-block/aerial-block pushbroom-strip/pushbroom-strip)

# stage TREE: a fresh copy of all examples, and of those for two runs in a folder of their own.
stage() {
  local tree=$1 project
  rm -rf "$tree"
  mkdir -p "$tree/two-runs"
  for project in $(example_projects | xargs -n1 dirname | sort -u); do
    cp -R "examples/$project" "$tree/"
  done
  for project in "${two_runs[@]}"; do cp -R "examples/$(dirname "$project")" "$tree/two-runs/"; done
}

# adjust_all TREE RUNNER...: has the host adjust the projects of TREE. `RUNNER DIRECTORY ARGUMENT...`
# runs the host in a directory; its standard output is kept beside the results.
adjust_all() {
  local tree=$1 project
  shift
  for project in $(example_projects); do
    "$@" "$tree/$(dirname "$project")" --cameras "$(basename "$project").ctl" \
      >"$tree/$project.stdout"
  done
  # Relative names: the host comes back after each run.
  "$@" "$tree/two-runs" --cameras "${two_runs[@]/%/.ctl}" >"$tree/two-runs/two-runs.stdout"
}

# on_linux DIRECTORY ARGUMENT...: the host on this machine.
on_linux() {
  local directory=$1
  shift
  (cd "$directory" && "$root/build/release/bin/vorn_host" "$root/build/release/lib/libvorn.so" "$@")
}

# linux_reference TREE: builds the library as it is delivered and lets it adjust the projects.
linux_reference() {
  root=$PWD
  cmake --preset release >/dev/null
  cmake --build --preset release --target vorn vorn_command vorn_host
  stage "$1"
  adjust_all "$1" on_linux
}
