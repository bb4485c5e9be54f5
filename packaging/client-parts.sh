#!/bin/bash
# What the packager of the client gives: its tree, texts and hooks. Only make-client-package sources
# this file: it runs with pipefail and defines refuse() and the variables.
# shellcheck disable=SC2154  # those variables

readonly Hooks=(preinst postinst prerm postrm)
# Where the client's files go. /bin, /lib and others are links into /usr on Debian: a file below
# them could replace one of the service.
readonly ClientPlaces='^(etc|opt|usr|var)(/|$)'
readonly LinkTargets='^/(dev|etc|opt|run|usr|var)(/|$)'
# The only file that the client tree may hold as well: both parts are joined.
readonly Overrides=usr/share/lintian/overrides/$Package

is_one_of() { # TEXT TEXTS...
  local text=$1 each
  shift
  for each; do
    [ "$each" != "$text" ] || return 0
  done
  return 1
}

is_plain_file() { [[ -f $1 && ! -L $1 ]]; }

# True for UTF-8 on standard input without control characters other than tabs, line and form feeds;
# form feeds are in the texts of some licenses.
is_text() {
  iconv -f UTF-8 -t UTF-8 2>/dev/null | { ! grep -qaP '[\x00-\x08\x0b\x0d-\x1f\x7f]'; }
}

check_maintainer() {
  # A comma would begin a second contact.
  local form='^[^[:cntrl:]<>, ][^[:cntrl:]<>,]* <[A-Za-z0-9._%+-]+@[A-Za-z0-9.-]+>$'
  local host=${maintainer##*@}
  [ -n "$maintainer" ] ||
    refuse "no maintainer was given; give \"NAME <ADDRESS>\" with --maintainer."
  # A second line would be another field of the package.
  [[ $maintainer =~ $form ]] || refuse "the maintainer $(printf %q "$maintainer") is not one line" \
    "\"NAME <ADDRESS>\" without a comma; correct it."
  is_text <<<"$maintainer" || refuse "the maintainer $maintainer is not in UTF-8; convert it."
  [ "$development" = yes ] || ! is_example "${host%>}" ||
    refuse "the maintainer $maintainer has an example address; give one that is read."
}

check_text() { # FILE WHAT
  [[ -f $1 && -r $1 ]] || refuse "the $2 \"$1\" is not a readable file; give the path of one."
  is_text <"$1" ||
    refuse "the $2 $1 is not plain text in UTF-8 with line feeds only; convert it."
  grep -q '[^[:space:]]' "$1" || refuse "the $2 $1 is empty; write it."
}

check_description() {
  check_text "$description" description
  [[ $(head -n 1 "$description") == [^[:space:]]* ]] || refuse "the first line of the description" \
    "$description is not the summary of the package; write it there."
  # Such lines have a meaning of their own in a control field.
  ! grep -q '^[[:space:]]*\.' "$description" ||
    refuse "a line of the description $description begins with a dot; change it."
}

check_changelog() {
  check_text "$changelog" changelog
  [[ $(head -n 1 "$changelog") == "$Package ($version) "* ]] ||
    refuse "the first line of the changelog $changelog does not begin with" \
      "\"$Package ($version) \"; add an entry for this version at the top."
}

check_hooks() {
  local name
  [ -d "$hooks" ] || refuse "\"$hooks\" is not a directory; give the one of the hooks with --hooks."
  while IFS= read -rd '' name; do
    is_one_of "$name" "${Hooks[@]}" ||
      refuse "$(printf %q "$hooks/$name") is not a hook; hooks are named ${Hooks[*]}."
    check_text "$hooks/$name" hook
    [[ $(head -n 1 "$hooks/$name") =~ ^#!/bin/sh(\ -e)?$ ]] ||
      refuse "the hook $hooks/$name does not begin with the line #!/bin/sh; write it for sh."
    sh -n "$hooks/$name" || refuse "sh cannot read the hook $hooks/$name; correct it."
  done < <(find "$hooks" -mindepth 1 -printf '%P\0')
}

check_texts() {
  [ -n "$license" ] || refuse "no license was given; give the file with the copyright notice and" \
    "the license of the client with --license."
  check_text "$license" license
  [ -z "$description" ] || check_description
  [ -z "$changelog" ] || check_changelog
  [ -z "$hooks" ] || check_hooks
}

# Refuses a link that on the clients' machines leads to a directory of the packager.
check_link() { # PATH BELOW THE TREE
  local target
  target=$(readlink "$clientTree/$1")
  [[ $target == /* ]] || target=/$(dirname "$1")/$target
  target=$(realpath -ms "$target")
  [[ $target =~ $LinkTargets && $target/ != "$(realpath "$clientTree")"/* ]] || refuse "the link" \
    "$(printf %q "/$1") in the client tree leads to $target, where a client has no files;" \
    "remove it."
}

# Prints the names of the desktop files that start the client, without ".desktop".
desktop_names() {
  local file
  for file in "$clientTree"/{usr/share/applications,etc/xdg/autostart}/*.desktop; do
    ! grep -qsE '^Exec=([^ ]* )*"?(/usr/bin/)?vantrell-harbor"?( |$)' "$file" ||
      basename "$file" .desktop
  done
}

check_client_tree() {
  local file kind path
  while IFS= read -rd '' kind && IFS= read -rd '' file; do
    path=$(printf %q "/$file")
    [[ $file != *[[:cntrl:]]* ]] ||
      refuse "the client tree holds $path, a name with a control character; rename it."
    [[ $file =~ $ClientPlaces ]] || refuse "the client tree holds $path; put files" \
      "of the client below /etc, /opt, /usr and /var only."
    # Drop-ins and links of such a name change the units of the service.
    [[ ${file##*/} != vantrell-harbor-updated* && $file != usr/lib/vantrell-harbor/confined* ]] ||
      refuse "the client tree holds $path, a name of the service; remove it."
    case $kind in
      [fd]) ;;
      l) check_link "$file" ;;
      *) refuse "$path in the client tree is not a file, a directory or a link; remove it." ;;
    esac
  done < <(find "$clientTree" -mindepth 1 -printf '%y\0%P\0')
  # On the machines they belong to root.
  while IFS= read -rd '' file; do
    [ -n "${setIds[$file]:-}" ] || refuse "$(printf %q "/$file") in the client tree has a set-id" \
      "bit; remove the bit, or name the file with --set-id."
  done < <(find "$clientTree" -type f -perm /6000 -printf '%P\0')
  for file in "${!setIds[@]}"; do
    [ -n "$(find "$clientTree/$file" -type f -perm /6000 2>/dev/null)" ] ||
      refuse "--set-id names $file, which is not a file with a set-id bit in the client tree;" \
        "correct it."
  done
  # Desktops write other characters in other forms.
  while IFS= read -r file; do
    [[ $file != *[!A-Za-z0-9_.-]* ]] || refuse "the desktop file $(printf %q "$file.desktop")" \
      "starts the client; give it a name of letters, digits, \"-\", \"_\" and \".\"."
  done < <(desktop_names)
}

# Refuses a client tree that would replace a file of the service, or lead it elsewhere by a link.
check_collisions() {
  local file path texts=("usr/share/doc/$Package"/{copyright,changelog.gz,changelog.Debian.gz})
  for file in "${ServiceFiles[@]}" "${texts[@]}" "$Overrides"; do
    path=$clientTree/$file
    if [[ $file != "$Overrides" ]] || ! is_plain_file "$path"; then
      [[ ! -e $path && ! -L $path ]] || refuse "the client tree holds /$file, which this program" \
        "puts into the package; remove it."
    fi
    until [ "${path%/*}" = "$clientTree" ]; do
      path=${path%/*}
      [[ -d $path && ! -L $path || ! -e $path && ! -L $path ]] || refuse "/${path#"$clientTree/"}" \
        "in the client tree is not a directory; make it one, or remove it."
    done
  done
}

# Writes what the package holds beside the two trees.
write_texts() { # TREE
  local doc=$1/usr/share/doc/$Package overrides=$1/$Overrides
  local log=$doc/changelog
  # The name that Debian gives it where a version has a revision.
  [[ $version != *-* ]] || log=$doc/changelog.Debian
  mkdir -p "$doc" "$(dirname "$overrides")"
  cat "$license" >"$doc/copyright"
  if [ -n "$changelog" ]; then
    cat "$changelog" >"$log"
  else
    cat >"$log" <<ENTRY
$Package ($version) stable; urgency=medium

  * Release $version.

 -- $maintainer  $(date -u -R -d "@$SOURCE_DATE_EPOCH")
ENTRY
  fi
  gzip -9n "$log"
  ! is_plain_file "$clientTree/$Overrides" || cat "$clientTree/$Overrides" >"$overrides"
  cat "$Recipe/debian/lintian-overrides" >>"$overrides"
}

# The value of the control field. Later lines begin with a blank and are not empty, so none of them
# is another field.
print_description() {
  local text
  if [ -n "$description" ]; then
    text=$(sed 's/[[:space:]]*$//' "$description" | cat -s | sed '2{/^$/d}')
    sed -e '1!s/^/ /' -e 's/^ $/ ./' <<<"$text"
  else
    cat <<'TEXT'
Vantrell Harbor desktop client
 The desktop client, and the service that keeps it up to date. The service
 starts no install while the client reports a live session.
TEXT
  fi
}

# The script of the service, and then the hook of the client. Each is free to end by "exit".
write_maintainer_script() { # NAME
  local ours=$Recipe/debian/$1 hook=${hooks:+$hooks/$1} script=$root/DEBIAN/$1
  if [[ -z $hook || ! -e $hook ]]; then
    [ ! -e "$ours" ] || install -m 0755 "$ours" "$script"
    return
  fi
  {
    printf '#!/bin/sh\nset -e\n'
    [ ! -e "$ours" ] || printf '(\n%s\n)\n' "$(tail -n +2 "$ours")"
    # Not at an upgrade: dpkg does not repair one that is interrupted in the old prerm, and a
    # release must not be able to refuse the next one.
    # shellcheck disable=SC2016  # of the script
    [[ $1 != p*rm ]] || printf '[ "$1" = remove ] || [ "$1" = purge ] || exit 0\n'
    tail -n +2 "$hook"
  } >"$script"
  chmod 0755 "$script"
}
