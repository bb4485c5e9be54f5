#!/bin/bash
# The values of a deployment, what a built service holds of them, and other checks that two programs
# share. make-client-package and publish-release source this file. They run with pipefail and define
# refuse(), which prints a sentence and ends the program.

# How a DER-encoded RSA-2048 public key with a three-byte exponent begins, in hexadecimal, how many
# digits follow, and how they end for a development key.
readonly KeyHead=30820122300d06092a864886f70d01010105000382010f00
readonly KeyRest=540
readonly DevelopmentKeyEnd=0203010003
readonly HostNames=(UPDATE_HOST WITNESS_1 WITNESS_2 WITNESS_3 DOWNLOADS)
readonly KeyNames=(RELEASE_KEY_1 RELEASE_KEY_2)

# Name to value; a key is its DER form, in hexadecimal. Empty without a deployment.
declare -A deployment=()
# "yes" accepts development keys and example hosts.
development=no

check_debian_version() {
  local reason
  reason=$(dpkg --validate-version "$1" 2>&1) ||
    refuse "\"$1\" is not a Debian version (${reason##*: }); choose another one."
}

hex() { od -An -v -tx1 | tr -d ' \n'; }

# True for an ELF file whose field e_machine is that of amd64.
is_amd64_elf() { [[ $(head -c 20 "$1" | hex) =~ ^7f454c46.{28}3e00$ ]]; }

is_release_key() { [[ $1 =~ ^${KeyHead}[0-9a-f]{$KeyRest}$ ]]; }

is_example() { [[ ${1,,} =~ \.example\.?(:[0-9]+)?(/|$) ]]; }

# Prints the DER form of a public key file, in hexadecimal; nothing if the file is not one.
public_key() { # FILE
  local form key
  for form in PEM DER; do
    key=$(openssl rsa -pubin -inform $form -in "$1" -outform DER </dev/null 2>/dev/null |
      hex) || continue
    printf '%s' "$key"
    return
  done
}

# Fills `deployment` from lines NAME=VALUE.
read_deployment() { # FILE
  local file=$1 folder line name path
  [[ -f $file && -r $file ]] || refuse "the deployment file \"$file\" cannot be read; check the" \
    "path and its permissions."
  while IFS= read -r line || [ -n "$line" ]; do
    [[ -n $line && $line != \#* ]] || continue
    name=${line%%=*}
    [[ $line =~ ^[A-Z0-9_]+=[A-Za-z0-9.:/@_~%+-]+$ &&
      " ${HostNames[*]} ${KeyNames[*]} " == *" $name "* ]] ||
      refuse "$file has the line \"$line\", which does not give a value of a deployment; see" \
        "packaging/deployment.conf.sample."
    deployment[$name]=${line#*=}
  done <"$file"
  for name in "${HostNames[@]}" "${KeyNames[@]}"; do
    [ -n "${deployment[$name]:-}" ] ||
      refuse "$file does not give $name; see packaging/deployment.conf.sample."
  done
  for name in "${HostNames[@]}"; do
    [ "$development" = yes ] || ! is_example "${deployment[$name]}" || refuse "$file gives" \
      "$name the example host ${deployment[$name]}; give the host of the deployment."
  done
  folder=$(dirname -- "$file")
  for name in "${KeyNames[@]}"; do
    path=${deployment[$name]}
    [[ $path == /* ]] || path=$folder/$path
    deployment[$name]=$(public_key "$path")
    is_release_key "${deployment[$name]}" || refuse "$path, which $file gives as $name, is not a" \
      "readable RSA-2048 public key; give the path of one."
  done
  [ "${deployment[RELEASE_KEY_1]}" != "${deployment[RELEASE_KEY_2]}" ] ||
    refuse "$file gives the same key twice; give two different keys."
}

# Prints the release keys in a program, in hexadecimal, one a line. They are read from the program
# itself, because these are the keys that it trusts.
trusted_keys() { # PROGRAM
  hex <"$1" | grep -oE "${KeyHead}[0-9a-f]{$KeyRest}" | sort -u || true
}

# True if the program holds the text, and not only as a part of a longer name or URL.
holds_text() { # PROGRAM TEXT
  local text=${2//./[.]}
  grep -qzaE "(^|[^A-Za-z0-9.:/@_~%+-])${text//+/[+]}\$" "$1"
}

# Refuses a service that is not one for the deployment. Without a deployment it checks only that
# there are two keys, and no development key.
check_service() { # PROGRAM
  local keys name
  keys=$(trusted_keys "$1")
  [ "$(wc -w <<<"$keys")" = 2 ] ||
    refuse "the service does not hold two release keys; use the service that this project builds."
  [ "$development" = yes ] || ! grep -q "$DevelopmentKeyEnd\$" <<<"$keys" ||
    refuse "the service trusts a development key; configure the build with VANTRELL_DEPLOYMENT," \
      "and install it into an empty tree."
  [ ${#deployment[@]} -gt 0 ] || return 0
  for name in "${KeyNames[@]}"; do
    grep -qxF "${deployment[$name]}" <<<"$keys" || refuse "the service does not trust the" \
      "$name of the deployment; configure the build with VANTRELL_DEPLOYMENT."
  done
  for name in "${HostNames[@]}"; do
    [ "$name" = DOWNLOADS ] || holds_text "$1" "${deployment[$name]}" ||
      refuse "the service does not ask ${deployment[$name]}, the $name of the deployment;" \
        "configure the build with VANTRELL_DEPLOYMENT."
  done
}
