#!/bin/sh
# fresh-machine.sh <directory of packages> <guide>...: follows each guide word for word, as a new user of a Debian system
# that has g++, cmake, make and pkg-config and nothing of ours, in a system that is thrown away.
#
# What counts in a guide stands between the headings "## Install" and "## Entries" or "## Next": the commands in blocks
# of sh, the contents of a file in the block after a line with its name, and log lines, which must come out like that but
# for their times. The packages have been built by script/package before, so that this command alone is left out.
set -eu

packages=$1
shift
cd "$(dirname "$0")/../.."
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/guides" "$scratch/packages"
cp "$packages"/*.deb "$scratch/packages"

# Makes a guide a script, and a file of the log lines that it shows.
for guide; do
    awk -v lines="$scratch/guides/$(basename "$guide").lines" '
        /^## /                            { reading = /^## Install/ ? 1 : /^## (Entries|Next)/ ? 0 : reading }
        !reading                          { next }
        kind == "" && /^`[^`]+`:$/        { name = substr($0, 2, length($0) - 3); next }
        kind == "" && /^```/              { kind = name != "" ? "file" : $0 == "```sh" ? "commands" : "other"
                                            if (kind == "file") print "cat >" name " <<\"END OF FILE\""
                                            if (kind == "commands") print "sleep 2 # as it takes to read on"; next }
        kind != "" && /^```$/             { if (kind == "file") print "END OF FILE"; kind = name = ""; next }
        kind == "commands" && /^script\// { if (/^script\/package( +#.*)?$/) built++; else strange = 1; next }
        kind == "commands" || kind == "file"
        kind == "other" && /^{/           { print > lines }
        END                               { exit built != 1 || strange }
    ' "$guide" >"$scratch/guides/$(basename "$guide").sh" || {
        echo "fresh-machine.sh: $guide does not have the packages, and nothing else, built by script/package" >&2
        exit 1
    }
done

cat >"$scratch/follow.sh" <<'E2'
# What a person would look at is caught here: the viewer's screen, and the page in a browser for terminals.
lnav() {
    tmux -u new-session -d -x 150 -y 40 "lnav$(printf ' %q' "$@")"
    for second in $(seq 30); do
        sleep 1
        tmux send-keys g # to the beginning
        tmux capture-pane -p >~/screen
        [ -n "$(missing_on_screen)" ] || break
    done
    tmux kill-server
}
missing_on_screen() {
    sed -E 's/.*"msg":"(.*)"}$/\1/' "/guides/$guide.lines" | while read -r text; do
        grep -qF "$text" ~/screen || echo "$text"
    done
}
export BROWSER=w3m
guide=$1
cd ~/libzyrlogger
set -eux
. "/guides/$guide.sh" >~/output
set +x
cat ~/output
without_time() { sed -E 's/"[0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}\.[0-9]{3}[+-][0-9]{4}"/""/' "$@"; }
without_time ~/.local/share/*.log >~/logged
without_time "/guides/$guide.lines" | while read -r line; do
    grep -qxF "$line" ~/logged || { echo "$guide: not in a log: $line" >&2; exit 1; }
done
[ -z "$(missing_on_screen)" ] || { echo "$guide: not on the screen of lnav: $(missing_on_screen)" >&2; exit 1; }
grep -q 'Zyr::Logger' ~/output || { echo "$guide: the reference was not shown" >&2; exit 1; }
E2

cat >"$scratch/users.sh" <<'E3'
set -eu
# An answer for every question of apt's, and otherwise as a new system has it.
echo 'APT::Get::Assume-Yes "true"; APT::Install-Recommends "true";' >/etc/apt/apt.conf.d/zz-new-machine
echo "127.0.0.1 $(hostname)" >>/etc/hosts
for script in /guides/*.sh; do
    guide=$(basename "$script" .sh)
    useradd -m -s /bin/bash user
    echo 'user ALL=(ALL) NOPASSWD: ALL' >/etc/sudoers.d/user
    mkdir -p /home/user/libzyrlogger/build
    ln -s /packages /home/user/libzyrlogger/build/packages
    su - user -c "bash /follow.sh $guide"
    apt-get purge -qq --auto-remove 'libzyrlogger*' >/dev/null
    userdel -r user 2>/dev/null
    echo "== $guide: every command worked"
done
E3

# shellcheck disable=SC2016 # the hook's own shell replaces $1
mmdebstrap --quiet --variant=apt --aptopt='Acquire::Retries "3"' \
    --include=g++,cmake,make,pkg-config,sudo,tmux,w3m,xdg-utils \
    --customize-hook="copy-in $scratch/packages $scratch/guides $scratch/follow.sh $scratch/users.sh /" \
    --customize-hook='chroot "$1" sh /users.sh' \
    "" /dev/null "$(script/apt-source)"
