#!/usr/bin/env bash
# Records examples/trace.jsonl again: an interactive bash in a tmux terminal, followed with
# `kalvo-devhost record --source bpf --tree`, into which a session is typed that starts a small web
# server (busybox httpd) and two loops, configures a copy of this project and builds one of its
# libraries, looks at the logs and stops the services. The home directory, user and boot names
# are then rewritten (/home/dev, dev, a fixed boot id) in every string, so the trace says nothing
# of the machine. Root (BPF); installs tmux and busybox when missing.
# Usage: scripts/record-example.sh [SECONDS]   (default 390)
set -euo pipefail
cd "$(dirname "$0")/.."
project=$PWD
seconds=${1:-390}

for tool in tmux busybox; do
  command -v "$tool" >/dev/null || { apt-get update && apt-get install -y --no-install-recommends "$tool"; }
done
cmake --preset gcc >/dev/null
cmake --build --preset gcc --target kalvo-devhost
bin=$project/build/gcc/devhost/tool/kalvo-devhost

work=$(mktemp -d)
home=$work/home
socket=kalvo-example-$$
trap 'tmux -L "$socket" kill-server 2>/dev/null || true; rm -rf "$work"' EXIT
mkdir -p "$home/project"
git archive HEAD | tar -x -C "$home/project"
git -C "$home/project" init -q
git -C "$home/project" add -A
git -C "$home/project" -c user.name=dev -c user.email=dev@example.com commit -qm "the project as it stands"

env -i HOME="$home" PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin TERM=xterm-256color LANG=C.UTF-8 \
  HISTFILE=/dev/null tmux -L "$socket" new-session -d -s rec -x 160 -y 48 -c "$home" "bash --norc --noprofile -i"
sleep 1
shell=$(tmux -L "$socket" display -p -t rec '#{pane_pid}')
"$bin" record --source bpf --tree "$shell" --duration "$seconds" --output "$work/raw.jsonl" &
record=$!
sleep 3

# Types a line into the shell, then waits.
type() {
  tmux -L "$socket" send-keys -t rec -l "$1"
  tmux -L "$socket" send-keys -t rec Enter
  sleep "${2:-3}"
}
# Waits (up to 400 s) for a file the session makes.
await() { for _ in $(seq 200); do [ -e "$1" ] && return; sleep 2; done; }

type 'cd ~/project'
type 'ls'
type 'git --version'
type 'mkdir -p ~/www ~/log'
type 'echo "<h1>build status</h1>" > ~/www/index.html'
type 'busybox httpd -f -p 127.0.0.1:8765 -h ~/www &'
type 'while true; do uptime >> ~/log/load.log; df -h / > ~/www/disk.txt; sleep 60; done &'
type 'while sleep 15; do curl -s -o /dev/null http://127.0.0.1:8765/; date -u +%T >> ~/log/heartbeat.log; done &'
type 'curl -s http://127.0.0.1:8765/'
type 'jobs'
type 'cmake --preset gcc -B build/example > /dev/null' 5
await "$home/project/build/example/build.ninja"
sleep 3
type 'cmake --build build/example --target kalvo_eil -j2 | tail -n 3' 5
await "$home/project/build/example/libkalvo_eil.a"
sleep 3
type 'ls -l build/example/libkalvo_eil.a'
type 'grep -c . ~/log/heartbeat.log'
type 'cat ~/log/load.log'
type 'cat ~/www/disk.txt'
type 'git status --short | head'
type 'history | tail -n 5'
# The services run until 40 s before the end, then the shell stops them.
left=$((seconds - SECONDS - 40))
[ "$left" -le 0 ] || sleep "$left"
type 'kill %1 %2 %3'
type 'jobs'
type 'du -sh build/example'
type 'rm -rf build/example'
wait "$record"

python3 - "$work/raw.jsonl" examples/trace.jsonl "$home" <<'PY'
import json, sys
source, target, home = sys.argv[1:]
boot = open('/proc/sys/kernel/random/boot_id').read().strip()
replacements = [(home, '/home/dev'), (boot, '7d3f1c52-9a4e-4b8f-a1d6-5e2c8b0f4a97')]
def anonymous(value, name=None):
    if isinstance(value, dict):
        return {key: anonymous(item, key) for key, item in value.items()}
    if name == 'user':
        return 'dev'
    if name == 'user_id':
        return 1000
    if isinstance(value, str):
        for old, new in replacements:
            value = value.replace(old, new)
    return value
with open(source, encoding='utf-8') as raw, open(target, 'w', encoding='utf-8') as out:
    for line in raw:
        out.write(json.dumps(anonymous(json.loads(line)), ensure_ascii=False, separators=(',', ':')) + '\n')
PY
echo "examples/trace.jsonl: $(wc -l < examples/trace.jsonl) events"
