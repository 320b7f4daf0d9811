#!/usr/bin/env bash
# A throw-away pooler for tests, in front of a throw-away PostgreSQL server.
set -uo pipefail

usage() {
    cat <<'TEXT'
Usage: tests/engines/pgbouncer.sh start|stop|remove|programs [FOLDER]

  start FOLDER   starts a pooler that belongs to FOLDER, with sessions of the
                 server that belongs there (tests/engines/postgres.sh)
  stop FOLDER    stops it; what its clients have under way is lost
  remove FOLDER  stops it and removes its files
  programs       fails when the pooler's program is not installed

They say nothing when all is well, and may be repeated. FOLDER/pgbouncer holds
the files url, with the connection URL of the database, and console, with that
of the pooler's own. It listens on a unix socket alone. Each transaction gets
another session of the server than the one before, where several are free. Run
by root, the pooler runs as postgres or nobody.

  KES_ENGINE_LIFE=seconds  how long the pooler runs at most (3600)
  KES_ENGINE_USER=name     the unprivileged user, when run by root
  KES_POOLER_MODE=mode     session, or transaction (as when nobody says)
  KES_POOLER_OF=folder     the folder of the server, where it is another
TEXT
}

die() {
    echo "pgbouncer.sh: $*" >&2
    exit 1
}

verb=${1-}
case $verb in
    --help | -h) usage; exit 0 ;;
    start | stop | remove) [[ -n ${2-} ]] || { usage >&2; exit 2; } ;;
    programs) ;;
    *) usage >&2; exit 2 ;;
esac

# Debian has it where only root's search path leads.
program=$(PATH=$PATH:/usr/sbin:/sbin command -v pgbouncer) ||
    die "no pgbouncer: install the package pgbouncer"
if [[ $verb == programs ]]; then
    exit 0
fi

if [[ ! -d $2 ]]; then
    [[ $verb == start ]] || exit 0
    mkdir -p "$2" || die "cannot make the folder $2"
fi
home=$(cd "$2" && pwd -P)/pgbouncer

# Root is refused by the program.
run=()
user=
if ((EUID == 0)); then
    user=${KES_ENGINE_USER-}
    if [[ -z $user ]]; then
        user=nobody
        getent passwd postgres > /dev/null && user=postgres
    fi
    getent passwd "$user" > /dev/null || die "no user $user: set KES_ENGINE_USER"
    run=(setpriv --reuid="$(id -u "$user")" --regid="$(id -g "$user")" --clear-groups --)
fi

as_user() {
    ${run[@]+"${run[@]}"} "$@"
}

place() {
    cat "$home/place" 2> /dev/null
}

# The pooler works in its folder; a stranger that was given the number of a dead
# one does not.
pid() {
    local number
    number=$(cat "$(place)/pid" 2> /dev/null)
    [[ -n $number && "$(readlink "/proc/$number/cwd" 2> /dev/null)" == "$(place)" ]] &&
        echo "$number"
}

# Its user has to reach the folder, and the path of a unix socket has 107 bytes at
# most.
choose_place() {
    local longest=85
    [[ -z $user ]] || chown "$user:" "$home"
    if ((${#home} <= longest)) && as_user test -w "$home"; then
        echo "$home" > "$home/place"
        return
    fi
    local other
    other=$(mktemp -d "${TMPDIR:-/tmp}/kes-pgbouncer-XXXXXX") || die "no folder for the pooler"
    [[ -z $user ]] || chown "$user:" "$other"
    as_user test -w "$other" || die "the user $user cannot enter $other; set TMPDIR"
    echo "$other" > "$home/place"
}

# Of idle sessions of the server it takes the one that has been idle longest.
configure() {
    local of=${KES_POOLER_OF:-$(dirname "$home")}/postgres
    local data
    data=$(cat "$of/place" 2> /dev/null)/data
    [[ -f $data/postmaster.pid ]] || die "no server of $of runs; start one first"
    cat > "$(place)/ini" <<TEXT
[databases]
* = host=$(dirname "$data") port=$(sed -n 4p "$data/postmaster.pid") user=kes
[pgbouncer]
pool_mode = ${KES_POOLER_MODE:-transaction}
server_round_robin = 1
default_pool_size = 40
query_wait_timeout = 30
listen_addr =
listen_port = 6432
unix_socket_dir = $(place)
auth_type = any
logfile = $(place)/log
pidfile = $(place)/pid
TEXT
}

await_start() {
    local try
    for try in {1..100}; do
        [[ ! -S $(place)/.s.PGSQL.6432 || -z $(pid) ]] || return 0
        sleep 0.05
    done
    die "the pooler does not start; see $(place)/log"
}

start() {
    [[ -f $home/place ]] || choose_place
    [[ -z $(pid) ]] || return 0
    rm -f "$(place)/pid" "$(place)/.s.PGSQL.6432"
    configure
    (
        exec 9>&- < /dev/null > "$home/start.log" 2>&1
        cd "$(place)" && exec ${run[@]+"${run[@]}"} timeout -k 5 "${KES_ENGINE_LIFE:-3600}" \
            "$program" -q "$(place)/ini"
    ) &
    await_start
    echo "postgresql://kes@/kes?host=$(place)&port=6432" > "$home/url"
    echo "postgresql://kes@/pgbouncer?host=$(place)&port=6432" > "$home/console"
}

stop() {
    local number try
    number=$(pid)
    [[ -n $number ]] || return 0
    kill "$number"
    # From 1.23 on it waits for its clients.
    for try in {1..20}; do
        [[ -n $(pid) ]] || return 0
        sleep 0.05
    done
    kill -9 "$number"
}

if [[ $verb == start ]]; then
    mkdir -p "$home" || die "cannot make the folder $home"
fi
[[ -d $home ]] || exit 0
exec 9> "$(dirname "$home")/pgbouncer.lock" && flock -w 60 9 ||
    die "another pgbouncer.sh is still busy with $2"
case $verb in
    start) start ;;
    stop) stop ;;
    remove)
        stop
        other=$(place)
        [[ -z $other || $other == "$home" ]] || rm -rf "$other"
        rm -rf "$home" "$(dirname "$home")/pgbouncer.lock"
        ;;
esac
exit 0
