#!/usr/bin/env bash
# A throw-away PostgreSQL server for tests.
set -uo pipefail

usage() {
    cat <<'TEXT'
Usage: tests/engines/postgres.sh start|promote|stop|remove|url|programs [FOLDER [tcp]]

  start FOLDER      makes (once) and starts a server that belongs to FOLDER
  promote FOLDER    makes a standby the primary
  stop FOLDER       stops it; the data stays, and the next start uses it again
  remove FOLDER     stops it and removes its data
  url FOLDER [tcp]  prints the connection URL: of the unix socket, or of loopback
  programs          fails when the server's programs are not installed

All but url say nothing when all is well, and may be repeated. FOLDER/postgres
holds the files url and tcp with the two URLs, and the server's data, unless its
user cannot enter there; it lies in the folder for temporary files then. The
server listens on a unix socket and on a free port of 127.0.0.1, there with TLS
and the certificate FOLDER/postgres/server.crt of the host localhost. User and
database are called kes. Run by root, the server runs as postgres or nobody.

  KES_ENGINE_LIFE=seconds  how long the server runs at most (3600)
  KES_ENGINE_USER=name     the unprivileged user, when run by root
  KES_PG_BINDIR=path       where initdb and pg_ctl are
  KES_PG_OPTIONS=text      further options of the server
  KES_PG_STANDBY_OF=folder the server is made as a standby of the one that
                           belongs there, and follows it
TEXT
}

die() {
    echo "postgres.sh: $*" >&2
    exit 1
}

verb=${1-}
case $verb in
    --help | -h) usage; exit 0 ;;
    start | promote | stop | remove | url) [[ -n ${2-} ]] || { usage >&2; exit 2; } ;;
    programs) ;;
    *) usage >&2; exit 2 ;;
esac
export LC_ALL=C.UTF-8
for name in "${!PG@}"; do
    unset "$name"
done

find_programs() {
    local folder
    for folder in "${KES_PG_BINDIR-}" $(ls -d /usr/lib/postgresql/*/bin 2> /dev/null | sort -rV) \
        "$(dirname "$(command -v initdb || echo none)")"; do
        if [[ -n $folder && -x $folder/initdb && -x $folder/pg_ctl && -x $folder/postgres ]]; then
            bin=$folder
            return
        fi
    done
    die "no initdb, pg_ctl and postgres: install the package postgresql, or set KES_PG_BINDIR"
}

command -v openssl > /dev/null || die "no openssl: install the package openssl"

bin=
find_programs
if [[ $verb == programs ]]; then
    exit 0
fi

if [[ ! -d $2 ]]; then
    case $verb in
        start) mkdir -p "$2" || die "cannot make the folder $2" ;;
        url) die "no server belongs to $2; start one first" ;;
        *) exit 0 ;;
    esac
fi
home=$(cd "$2" && pwd -P)/postgres

# Root is refused by the server's programs.
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

give() {  # file...
    [[ -z $user ]] || chown "$user:" "$@"
}

# The folder that the server works in.
place() {
    cat "$home/place" 2> /dev/null
}

pid_line() {  # number
    sed -n "$1p" "$(place)/data/postmaster.pid" 2> /dev/null | tr -d ' \t'
}

# Of the server's own processes each works in the data folder; a stranger that
# was given the number of a dead one does not.
is_ours() {  # pid
    [[ -n $1 && "$(readlink "/proc/$1/cwd" 2> /dev/null)" == "$(place)/data" ]]
}

is_running() {
    is_ours "$(pid_line 1)"
}

# What a killed server left behind: its children end by themselves, soon.
clear_remains() {
    local try process any
    [[ -f $(place)/data/postmaster.pid ]] || return 0
    for try in {1..50}; do
        any=no
        for process in /proc/[0-9]*; do
            ! is_ours "${process#/proc/}" || any=yes
        done
        if [[ $any == no ]]; then
            rm -f "$(place)/data/postmaster.pid" "$(place)"/.s.PGSQL.*
            return
        fi
        sleep 0.1
    done
    die "processes of a killed server still work in $(place)/data"
}

free_port() {
    local try port
    for try in {1..200}; do
        port=$((20000 + (RANDOM * 32768 + RANDOM) % 12000))
        if ! (exec 3<> "/dev/tcp/127.0.0.1/$port") 2> /dev/null; then
            echo "$port"
            return
        fi
    done
    die "no free port on 127.0.0.1"
}

# The server's user has to reach the folder, and the path of a unix socket has
# 107 bytes at most.
choose_place() {
    local longest=85
    give "$home"
    if ((${#home} <= longest)) && as_user test -w "$home"; then
        echo "$home" > "$home/place"
        return
    fi
    local other
    other=$(mktemp -d "${TMPDIR:-/tmp}/kes-postgres-XXXXXX") || die "no folder for the server"
    give "$other"
    as_user test -w "$other" || die "the user $user cannot enter $other; set TMPDIR"
    echo "$other" > "$home/place"
}

# A copy of the other server, certificate included, that goes on to follow it.
make_standby() {
    local other=$KES_PG_STANDBY_OF/postgres
    rm -rf "$(place)/data"
    as_user "$bin/pg_basebackup" -D "$(place)/data" -d "$(cat "$other/url")" -R -X stream \
        -c fast --no-sync > "$(place)/log" 2>&1 9>&- || die "no copy; see $(place)/log"
    cp "$(cat "$other/place")/password" "$(place)/password"
    give "$(place)/password"
    cp "$(place)/data/server.crt" "$home/server.crt"
    : > "$home/ready"
}

make_cluster() {
    if [[ -n ${KES_PG_STANDBY_OF-} ]]; then
        make_standby
        return
    fi
    rm -rf "$(place)/data"
    (umask 077 && od -An -N16 -tx1 /dev/urandom | tr -d ' \n' > "$(place)/password")
    give "$(place)/password"
    (cd "$(place)" && as_user "$bin/initdb" -D "$(place)/data" -U kes \
        --pwfile="$(place)/password" --auth-local=trust --auth-host=scram-sha-256 \
        -E UTF8 --locale=C.UTF-8 --no-sync) > "$(place)/log" 2>&1 9>&- ||
        die "initdb failed; see $(place)/log"
    as_user openssl req -x509 -new -nodes -days 30 -subj /CN=localhost -newkey ec \
        -pkeyopt ec_paramgen_curve:prime256v1 -keyout "$(place)/data/server.key" \
        -out "$(place)/data/server.crt" >> "$(place)/log" 2>&1 ||
        die "no certificate; see $(place)/log"
    cp "$(place)/data/server.crt" "$home/server.crt"
}

start_server() {
    local try port
    for try in {1..6}; do
        port=$(cat "$home/port" 2> /dev/null)
        # The port of the last time, where it is free: connection texts stay good.
        if [[ -z $port ]] || (exec 3<> "/dev/tcp/127.0.0.1/$port") 2> /dev/null; then
            port=$(free_port) || exit 1
        fi
        : > "$(place)/start.log"
        give "$(place)/start.log"
        if as_user "$bin/pg_ctl" -D "$(place)/data" -w -t 60 -s -l "$(place)/start.log" -o \
            "-c unix_socket_directories=.. -h 127.0.0.1 -p $port -c ssl=on -c fsync=off ${KES_PG_OPTIONS-}" \
            start < /dev/null > /dev/null 2>&1 9>&-; then
            echo "$port" > "$home/port"
            return
        fi
        grep -q 'Address already in use' "$(place)/start.log" || break
        rm -f "$home/port"
    done
    die "the server does not start; see $(place)/start.log"
}

make_database() {
    echo 'create database kes' | as_user env PGPASSWORD="$(cat "$(place)/password")" \
        "$bin/psql" -X -q "host=127.0.0.1 port=$(pid_line 4) user=kes dbname=postgres" \
        >> "$(place)/start.log" 2>&1 9>&- || die "no database; see $(place)/start.log"
    : > "$home/ready"
}

# A test run that was killed stops no server.
watch() {
    setsid bash -c 'sleep "$0" && exec "$1" stop "$2"' "${KES_ENGINE_LIFE:-3600}" \
        "$(readlink -f "${BASH_SOURCE[0]}")" "$(dirname "$home")" \
        < /dev/null > /dev/null 2>&1 9>&- &
    echo $! > "$home/watch"
}

end_watch() {
    local pid
    pid=$(cat "$home/watch" 2> /dev/null) || return 0
    rm -f "$home/watch"
    # Its group: the shell and its sleep. Not when it is the one that runs this.
    if [[ $pid != "$$" && "$(cat "/proc/$pid/comm" 2> /dev/null)" == bash ]]; then
        kill -- "-$pid" 2> /dev/null
    fi
}

start() {
    if [[ ! -f $home/ready ]]; then
        choose_place
        make_cluster
    fi
    end_watch
    if ! is_running; then
        clear_remains
        start_server
    fi
    [[ -f $home/ready ]] || make_database
    echo "postgresql://kes@/kes?host=$(place)&port=$(pid_line 4)" > "$home/url"
    echo "postgresql://kes:$(cat "$(place)/password")@127.0.0.1:$(pid_line 4)/kes" > "$home/tcp"
    watch
}

stop() {
    end_watch
    is_running || return 0
    as_user "$bin/pg_ctl" -D "$(place)/data" -w -t 60 -s -m fast stop > /dev/null 2>&1 9>&- ||
        as_user "$bin/pg_ctl" -D "$(place)/data" -w -t 30 -s -m immediate stop \
            > /dev/null 2>&1 9>&- || die "the server does not stop; see $(place)/start.log"
}

if [[ $verb == url ]]; then
    is_running || die "no server of $2 runs; start one first"
    file=$home/url
    [[ ${3-} != tcp ]] || file=$home/tcp
    exec cat "$file"
fi

if [[ $verb == start ]]; then
    mkdir -p "$home" || die "cannot make the folder $home"
fi
[[ -d $home ]] || exit 0
exec 9> "$(dirname "$home")/postgres.lock" && flock -w 60 9 ||
    die "another postgres.sh is still busy with $2"
case $verb in
    start) start ;;
    promote) as_user "$bin/pg_ctl" -D "$(place)/data" -w -t 60 -s promote 9>&- || die "no promotion" ;;
    stop) stop ;;
    remove)
        stop
        other=$(place)
        [[ -z $other || $other == "$home" ]] || rm -rf "$other"
        rm -rf "$home" "$(dirname "$home")/postgres.lock"
        ;;
esac
exit 0
