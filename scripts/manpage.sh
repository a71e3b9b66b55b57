#!/usr/bin/env bash
# Writes velqor-camera's man page from its own --help texts: the program's
# help (with its exit-status table) and one section per subcommand.
# Usage: manpage.sh PATH/TO/velqor-camera OUT.1
set -euo pipefail
bin="$1"
out="$2"

# Help text as roff: backslashes escaped, lines starting with . or ' protected.
roff() { sed -e 's/\\/\\e/g' -e "s/^\([.']\)/\\\\\&\1/"; }

subcommands() {
  "$bin" --help | awk '/^Subcommands:/ {on = 1; next} on && /^  [a-z]/ {print $1} on && /^$/ {exit}'
}

version=$("$bin" --version)
{
  echo ".TH VELQOR-CAMERA 1 \"\" \"velqor-camera $version\" \"User Commands\""
  echo ".SH NAME"
  echo "velqor-camera \\- the VelqorCamera plug-in on a simulated device"
  echo ".SH SYNOPSIS"
  echo ".B velqor-camera"
  echo "[\\fIOPTIONS\\fR] \\fISUBCOMMAND\\fR [\\fIOPTIONS\\fR] [\\fIARGUMENTS\\fR]"
  echo ".SH DESCRIPTION"
  echo ".nf"
  "$bin" --help | roff
  echo ".fi"
  echo ".SH SUBCOMMANDS"
  for sub in $(subcommands); do
    echo ".SS $sub"
    echo ".nf"
    "$bin" "$sub" --help | roff
    echo ".fi"
  done
  echo ".SH FILES"
  echo "Velqor.bundle and page/ are looked up in \$VELQOR_CAMERA_DATA_DIR, then in"
  echo "share/velqor-camera of the installation, then beside the program."
  echo ".SH SEE ALSO"
  echo "README.md of the VelqorCamera sources."
} > "$out.tmp"
mv "$out.tmp" "$out"
