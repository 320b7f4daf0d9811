#!/usr/bin/env bash
# A throw-away MariaDB server for tests; as galera.sh a cluster of them.
set -uo pipefail

name=$(basename "${BASH_SOURCE[0]}" .sh)

usage() {
    cat <<TEXT
Usage: tests/engines/$name.sh start|stop|remove|kill|programs [FOLDER [NODE]]

  start FOLDER      makes (once) and starts what belongs to FOLDER: one server as
                    mariadb.sh, a cluster of three as galera.sh. Nodes that died
                    are started again and join the others
  stop FOLDER       stops it; the data stays, and the next start uses it again
  remove FOLDER     stops it and removes its data
  kill FOLDER NODE  ends one server at once, as a power cut would
  programs          fails when the server's programs are not installed

All say nothing when all is well, and may be repeated. FOLDER/$name holds the
files source (host:port/database, of a cluster all hosts), socket, user and
password, and a folder for each node (node1, ...) with its own source. The data
are in memory where there is enough of it, else in FOLDER, or among the temporary
files where the servers' user cannot enter FOLDER; the file place says where. The
servers listen on a socket and on free ports of 127.0.0.1. User and database are
called kes. Run by root, the servers run as mysql or nobody.

  KES_ENGINE_LIFE=seconds  how long the servers run at most (3600)
  KES_ENGINE_USER=name     the unprivileged user, when run by root
  KES_ENGINE_DURABLE=1     on a disk, flushed at every commit, for measurements
  KES_MARIADB_OPTIONS=text further lines of the servers' settings, after ";"
TEXT
}

die() {
    echo "$name.sh: $*" >&2
    exit 1
}

verb=${1-}
case $verb in
    --help | -h) usage; exit 0 ;;
    start | stop | remove) [[ -n ${2-} ]] || { usage >&2; exit 2; } ;;
    kill) [[ -n ${2-} && ${3-} == [1-9] ]] || { usage >&2; exit 2; } ;;
    programs) ;;
    *) usage >&2; exit 2 ;;
esac
export LC_ALL=C.UTF-8
PATH=$PATH:/usr/local/sbin:/usr/sbin:/sbin

nodes=1
provider=
[[ $name != galera ]] || nodes=3

find_programs() {
    local program
    for program in mariadbd mariadb-install-db mariadb; do
        command -v "$program" > /dev/null || die "no $program: install the package mariadb-server"
    done
    ((nodes > 1)) || return 0
    for provider in /usr/lib/galera/libgalera_smm.so /usr/lib64/galera-4/libgalera_smm.so; do
        [[ ! -e $provider ]] || break
    done
    [[ -e $provider ]] || die "no libgalera_smm.so: install the package galera-4"
    for program in wsrep_sst_rsync rsync; do
        command -v "$program" > /dev/null || die "no $program: install the package rsync"
    done
}

[[ $verb == stop || $verb == remove || $verb == kill ]] || find_programs
[[ $verb != programs ]] || exit 0

if [[ ! -d $2 ]]; then
    [[ $verb == start ]] || exit 0
    mkdir -p "$2" || die "cannot make the folder $2"
fi
home=$(cd "$2" && pwd -P)/$name

# Servers that root starts run as somebody else.
run=()
user=$(id -un)
if ((EUID == 0)); then
    user=${KES_ENGINE_USER-}
    if [[ -z $user ]]; then
        user=nobody
        getent passwd mysql > /dev/null && user=mysql
    fi
    getent passwd "$user" > /dev/null || die "no user $user: set KES_ENGINE_USER"
    run=(setpriv --reuid="$(id -u "$user")" --regid="$(id -g "$user")" --clear-groups --)
fi

as_user() {
    ${run[@]+"${run[@]}"} "$@"
}

give() {  # file...
    ((EUID != 0)) || chown "$user:" "$@"
}

# The folder that the servers work in.
place() {
    cat "$home/place" 2> /dev/null
}

pid_of() {  # node
    cat "$(place)/node$1/pid" 2> /dev/null
}

# A server works in its data folder; a stranger that was given the number of a
# dead one does not.
is_ours() {  # pid node
    [[ -n $1 && "$(readlink "/proc/$1/cwd" 2> /dev/null)" == "$(place)/node$2/data" ]]
}

is_running() {  # node
    is_ours "$(pid_of "$1")" "$1"
}

port_of() {  # node line: clients, group, incremental transfer, whole transfer
    sed -n "$2p" "$(place)/node$1/ports" 2> /dev/null
}

taken=" "
free_port() {  # sets port
    local try
    for try in {1..300}; do
        port=$((20000 + (RANDOM * 32768 + RANDOM) % 12000))
        if [[ $taken != *" $port "* ]] && ! (exec 3<> "/dev/tcp/127.0.0.1/$port") 2> /dev/null; then
            taken+="$port "
            return
        fi
    done
    die "no free port on 127.0.0.1"
}

is_port_used() {  # port
    (exec 3<> "/dev/tcp/127.0.0.1/$1") 2> /dev/null
}

# Tables are made ten times as fast in memory. On a disk, the servers' user has
# to reach the folder, the path of a socket has 107 bytes at most, and the
# transfer between nodes does not quote.
choose_place() {
    local longest=85 memory=/dev/shm least=3000000
    [[ ! -s $home/place ]] || return 0
    give "$home"
    if [[ ${KES_ENGINE_DURABLE-0} != 1 && -w $memory ]] &&
        (($(df --output=avail "$memory" | tail -1) > least)); then
        make_place "$memory"
        return
    fi
    if ((${#home} <= longest)) && [[ $home != *[!-+/.,:@%_a-zA-Z0-9]* ]] &&
        as_user test -w "$home"; then
        echo "$home" > "$home/place"
        return
    fi
    make_place "${TMPDIR:-/tmp}"
}

make_place() {  # folder
    local folder
    folder=$(mktemp -d "$1/kes-$name-XXXXXX") || die "no folder for the servers"
    give "$folder"
    as_user test -w "$folder" || die "the user $user cannot enter $folder; set TMPDIR"
    echo "$folder" > "$home/place"
}

make_folders() {  # node
    local folder line ok
    folder=$(place)/node$1
    mkdir -p "$folder/data" "$folder/tmp" && give "$folder" "$folder/data" "$folder/tmp" ||
        die "cannot make the folders of node $1"
    # The ports of the last time, where they are free: connection texts stay good.
    ok=$(port_of "$1" 4)
    for line in 1 2 3 4; do
        [[ -z $ok ]] || ! is_port_used "$(port_of "$1" $line)" || ok=
    done
    [[ -z $ok ]] || return 0
    for line in 1 2 3 4; do
        free_port
        echo "$port"
    done > "$folder/ports"
}

# Not what the driver would choose: it has to bring its own.
settings() {  # node
    local folder
    folder=$(place)/node$1
    cat <<TEXT
[mysqld]
datadir=$folder/data
tmpdir=$folder/tmp
socket=$folder/socket
pid-file=$folder/mariadbd.pid
log-error=$folder/error.log
bind-address=127.0.0.1
port=$(port_of "$1" 1)
skip-name-resolve
character-set-server=latin1
sql-mode=
autocommit=OFF
innodb-autoinc-lock-mode=2
innodb-buffer-pool-size=64M
innodb-log-file-size=32M
binlog-format=ROW
max-connections=100
TEXT
    if [[ ${KES_ENGINE_DURABLE-0} == 1 ]]; then
        echo "innodb-flush-log-at-trx-commit=1"
    else
        printf '%s\n' "innodb-flush-log-at-trx-commit=0" "innodb-flush-method=nosync"
    fi
    ((nodes == 1)) || cluster_settings "$1"
    tr ';' '\n' <<< "${KES_MARIADB_OPTIONS-}"
}

# A node that is gone is noticed after two seconds.
cluster_settings() {  # node
    local group=$(port_of "$1" 2) node members=
    for ((node = 1; node <= nodes; ++node)); do
        members+=${members:+,}127.0.0.1:$(port_of $node 2)
    done
    cat <<TEXT
wsrep-on=ON
wsrep-provider=$provider
wsrep-cluster-name=kes
wsrep-cluster-address=gcomm://$members
wsrep-node-name=node$1
wsrep-node-address=127.0.0.1:$group
wsrep-node-incoming-address=127.0.0.1:$(port_of "$1" 1)
wsrep-sst-method=rsync
wsrep-sst-receive-address=127.0.0.1:$(port_of "$1" 4)
wsrep-slave-threads=2
wsrep-provider-options="base_host=127.0.0.1;base_port=$group;gmcast.listen_addr=tcp://127.0.0.1:$group;ist.recv_addr=127.0.0.1:$(port_of "$1" 3);gcache.size=32M;evs.keepalive_period=PT0.3S;evs.inactive_check_period=PT0.2S;evs.suspect_timeout=PT2S;evs.inactive_timeout=PT4S;evs.install_timeout=PT4S"
TEXT
}

ask() {  # node statement
    mariadb --defaults-file="$(place)/client.cnf" --protocol=tcp -h 127.0.0.1 \
        -P "$(port_of "$1" 1)" -N -B -e "$2" 2> /dev/null
}

status_of() {  # node variable
    ask "$1" "show status like '$2'" | cut -f2
}

is_ready() {  # node
    if ((nodes == 1)); then
        ask "$1" "select 1" > /dev/null
    else
        [[ $(status_of "$1" wsrep_local_state) == 4 ]]
    fi
}

# What the tables of a node that was killed hold, as uuid:number.
recovered() {  # node
    local folder
    folder=$(place)/node$1
    grep -q '^seqno:' "$folder/data/grastate.dat" 2> /dev/null || return 0
    as_user mariadbd --defaults-file="$folder/my.cnf" --wsrep-recover \
        --log-error="$folder/recover.log" > /dev/null 2>&1 9>&-
    sed -n 's/.*Recovered position: *//p' "$folder/recover.log" | tail -1
}

start_node() {  # node option...
    local node=$1 folder pid position end
    shift
    folder=$(place)/node$node
    (umask 077 && settings "$node" > "$folder/my.cnf")
    rm -f "$folder/pid" "$folder/socket"
    : > "$folder/error.log"
    give "$folder/my.cnf" "$folder/error.log"
    if grep -q '^seqno: *-1' "$folder/data/grastate.dat" 2> /dev/null; then
        position=$(recovered "$node")
        [[ -z $position ]] || set -- --wsrep-start-position="$position" "$@"
    fi
    ${run[@]+"${run[@]}"} setsid mariadbd --defaults-file="$folder/my.cnf" "$@" \
        < /dev/null > /dev/null 2>&1 9>&- &
    pid=$!
    disown
    echo $pid > "$folder/pid"
    end=$((SECONDS + 90))
    while ((SECONDS < end)); do
        is_running "$node" && is_ready "$node" && return
        kill -0 $pid 2> /dev/null || die "node $node does not start; see $folder/error.log"
        sleep 0.1
    done
    kill -KILL $pid 2> /dev/null
    die "node $node is not ready after 90 s; see $folder/error.log"
}

# The system tables of the first node; the others get theirs from it.
make_data() {
    local folder password
    folder=$(place)
    password=$(od -An -N16 -tx1 /dev/urandom | tr -d ' \n')
    rm -rf "$folder"/node*/data/*
    (
        umask 077
        echo "$password" > "$home/password"
        printf '[client]\nuser=kes\npassword=%s\nconnect-timeout=3\n' "$password" \
            > "$folder/client.cnf"
        printf '%s\n' "flush privileges;" "create database if not exists kes;" \
            "create or replace user kes@'%' identified by '$password';" \
            "create or replace user kes@localhost identified by '$password';" \
            "grant all on *.* to kes@'%' with grant option;" \
            "grant all on *.* to kes@localhost with grant option;" > "$folder/first.sql"
        : > "$folder/install.log"
    )
    give "$folder/first.sql" "$folder/install.log"
    as_user mariadb-install-db --no-defaults --datadir="$folder/node1/data" --skip-test-db \
        --skip-name-resolve --auth-root-authentication-method=socket \
        --auth-root-socket-user="$user" --extra-file="$folder/first.sql" \
        --innodb-log-file-size=32M --innodb-flush-method=nosync --tmpdir="$folder/node1/tmp" \
        >> "$folder/install.log" 2>&1 9>&- ||
        die "mariadb-install-db failed; see $folder/install.log"
    rm -f "$folder/first.sql"
    : > "$home/ready"
}

# The node to start a cluster from: the last that was stopped, or the one that
# came furthest when all were killed.
first_node() {
    local node position best=1 furthest=-2 file
    for ((node = 1; node <= nodes; ++node)); do
        file=$(place)/node$node/data/grastate.dat
        if grep -q '^safe_to_bootstrap: 1' "$file" 2> /dev/null; then
            echo $node
            return
        fi
        [[ -f $file ]] || continue
        position=$(recovered $node)
        if [[ -n $position ]] && ((${position##*:} > furthest)); then
            furthest=${position##*:}
            best=$node
        fi
    done
    file=$(place)/node$best/data/grastate.dat
    [[ ! -f $file ]] || sed -i 's/^safe_to_bootstrap: 0/safe_to_bootstrap: 1/' "$file"
    echo $best
}

start_nodes() {
    local node first any=no
    for ((node = 1; node <= nodes; ++node)); do
        if is_running $node; then
            any=yes
        else
            make_folders $node
        fi
    done
    [[ -f $home/ready ]] || make_data
    if ((nodes == 1)); then
        is_running 1 || start_node 1
        return
    fi
    # Servers without a majority wait for ever: all anew.
    for ((node = 1; node <= nodes; ++node)); do
        if is_running $node && ! is_ready $node; then
            stop_nodes
            any=no
        fi
    done
    if [[ $any == no ]]; then
        for ((node = 1; node <= nodes; ++node)); do
            (umask 077 && settings $node > "$(place)/node$node/my.cnf")
            give "$(place)/node$node/my.cnf"
        done
        first=$(first_node)
        start_node "$first" --wsrep-new-cluster
    fi
    for ((node = 1; node <= nodes; ++node)); do
        is_running $node || start_node $node
    done
}

stop_nodes() {  # [signal]
    local node pid try
    for ((node = nodes; node >= 1; --node)); do
        pid=$(pid_of $node)
        is_ours "$pid" $node || continue
        kill -s "${1-TERM}" "$pid" 2> /dev/null
        for try in {1..300}; do
            is_ours "$pid" $node || break
            ((try != 200)) || kill -KILL "$pid" 2> /dev/null
            sleep 0.1
        done
        ! is_ours "$pid" $node || die "node $node (process $pid) does not stop"
    done
}

# A test run that was killed stops no server.
watch() {
    setsid bash -c 'sleep "$0" && exec "$1" stop "$2"' "${KES_ENGINE_LIFE:-3600}" \
        "$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/$name.sh" "$(dirname "$home")" \
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
    local node hosts=
    mkdir -p "$home" || die "cannot make the folder $home"
    choose_place
    end_watch
    start_nodes
    for ((node = 1; node <= nodes; ++node)); do
        mkdir -p "$home/node$node"
        echo "127.0.0.1:$(port_of $node 1)/kes" > "$home/node$node/source"
        hosts+=${hosts:+,}127.0.0.1:$(port_of $node 1)
    done
    echo "$hosts/kes" > "$home/source"
    echo "$(place)/node1/socket/kes" > "$home/socket"
    echo kes > "$home/user"
    watch
}

stop() {  # [signal]
    end_watch
    stop_nodes "$@"
}

[[ $verb == start || -d $home ]] || exit 0
exec 9> "$(dirname "$home")/$name.lock" && flock -w 120 9 ||
    die "another $name.sh is still busy with $2"
case $verb in
    start) start ;;
    stop) stop ;;
    kill)
        pid=$(pid_of "$3")
        ! is_ours "$pid" "$3" || kill -KILL "$pid"
        ;;
    remove)
        stop KILL  # a node of a cluster may take its time to say good-bye
        other=$(place)
        [[ -z $other || $other == "$home" ]] || rm -rf "$other"
        rm -rf "$home" "$(dirname "$home")/$name.lock"
        ;;
esac
