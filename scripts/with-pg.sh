#!/usr/bin/env bash
# with-pg.sh CMD [ARGS...]: runs CMD against a throwaway PostgreSQL cluster (Unix socket only, in a
# private folder), then stops and deletes it, also when CMD fails or the script is interrupted. CMD sees
# PGHOST/PGPORT/PGUSER/PGDATABASE. Without the server binaries, CMD runs alone and the PostgreSQL tests
# skip themselves with a message.
set -euo pipefail
PGBIN=$(pg_config --bindir 2>/dev/null || true)
if [ -z "$PGBIN" ] || [ ! -x "$PGBIN/initdb" ]; then
  for d in /usr/lib/postgresql/*/bin; do [ -x "$d/initdb" ] && PGBIN=$d; done
fi
if [ -z "$PGBIN" ] || [ ! -x "$PGBIN/initdb" ]; then
  echo "with-pg: no PostgreSQL server binaries (Debian package postgresql); the PostgreSQL tests will be skipped" >&2
  exec "$@"
fi
PORT=${QBX_PGPORT:-5432}  # socket-only in a private folder: the port only names the socket file
T=$(mktemp -d)            # short path: a socket path may not exceed 107 bytes
if [ "$(id -u)" = 0 ]; then
  chown postgres:postgres "$T"  # initdb and pg_ctl refuse to run as root
  as_pg() { (cd / && runuser -u postgres -- "$@"); }
else
  as_pg() { "$@"; }
fi
chmod 0755 "$T"
cleanup() { as_pg "$PGBIN/pg_ctl" -D "$T/data" -m immediate -w -s stop >/dev/null 2>&1 || true; rm -rf "$T"; }
trap cleanup EXIT
trap 'exit 130' INT TERM HUP
as_pg "$PGBIN/initdb" -D "$T/data" -U postgres -A trust -E UTF8 --locale=C.UTF-8 -N >"$T/initdb.log"
as_pg "$PGBIN/pg_ctl" -D "$T/data" -l "$T/server.log" -w -s \
  -o "-c listen_addresses='' -k $T -p $PORT -c fsync=off -c synchronous_commit=off -c full_page_writes=off -c max_connections=200" start
export PGHOST="$T" PGPORT="$PORT" PGUSER=postgres PGDATABASE=postgres
set +e
"$@"
rc=$?
set -e
exit $rc
