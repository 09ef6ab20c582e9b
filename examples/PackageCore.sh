#!/bin/sh
# Example core packaging script, run by a daemon that restarted after a crash:
#   PackageCore.sh CORE_DIR CORE_PREFIX DUMP_DIR PACKAGE_NAME
# Packs the core files (names holding CORE_PREFIX or "bexotrace") of CORE_DIR
# into the gzip'd tar file DUMP_DIR/PACKAGE_NAME and removes the packed cores,
# so that the next start does not package them again.
set -eu
core_dir=$1 prefix=$2 dump_dir=$3 name=$4
cd "$core_dir"
files=$(ls | grep -E -e "$prefix|bexotrace") || exit 0
mkdir -p "$dump_dir"
# shellcheck disable=SC2086 # core file names hold no blanks
tar -czf "$dump_dir/$name" $files
rm -f $files
