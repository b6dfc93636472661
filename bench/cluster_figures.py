#!/usr/bin/env python3
"""What services behind HAProxy bear, with SQLite and with PostgreSQL, and what a link and a request cost.

usage: cluster_figures.py BUILD_FOLDER [LINKS]
"""

import os
import shutil
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tools"))
from measuring import finish, missed, resident_megabytes, show  # noqa: E402
from service_figures import FACTS, FREE, load  # noqa: E402
from cluster import PORT, Cluster  # noqa: E402
from stage import Stage, enter_own_network, skip_where_missing, wait_until  # noqa: E402

SECONDS = 10
# What a machine for a database alone would be given, as far as this one has it.
SERVER = ("-c", "shared_buffers=1GB", "-c", "max_wal_size=8GB", "-c", "log_checkpoints=off")
BYTES_OF_A_LINK = 1200


def sql(stage, text):
    return subprocess.run(["psql", "-h", stage.path("postgres"), "-U", "zelvo", "-XAtc", text, "postgres"],
                          check=True, capture_output=True, text=True).stdout.strip()


def fill(stage, count):
    """As many links as if they had been registered; the names of some go into a file."""
    facts = ", ".join("'" + fact.replace("'", "''") + "'" for fact in FACTS)
    part = 100_000
    for begin in range(0, count, part):
        sql(stage, "INSERT INTO links (link, owner, availabilityStatus, proven, lastSign, ComputerName, "
                   "LocalHostname, vncPort, IPAddress, Port, MacAddress, LastKeyboardLocale, MappedService, "
                   "HotKeys) SELECT uuid_send(gen_random_uuid()), sha256(uuid_send(gen_random_uuid())), 0, 1, "
                   f"extract(epoch FROM now())::bigint, {facts} FROM generate_series(1, "
                   f"{min(part, count - begin)})")
    sql(stage, "ANALYZE links")
    share = min(100, 100 * 1_000_000 / count)
    names = sql(stage, f"SELECT encode(link, 'hex') FROM links TABLESAMPLE BERNOULLI ({share})")
    with open(stage.path("names"), "w", encoding="ascii") as file:
        file.write(names.replace("\n", ""))


def processor_seconds(*pids):
    """Of the processes, and of those that they have started and not yet waited for."""
    total = 0
    for pid in os.listdir("/proc"):
        try:
            with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
                fields = stat.read().rsplit(")", 1)[1].split()
        except (OSError, NotADirectoryError):
            continue
        if pid.isdigit() and (int(pid) in pids or int(fields[1]) in pids):
            total += int(fields[11]) + int(fields[12])
    return total / os.sysconf("SC_CLK_TCK")


def measure(cluster, label):
    parts = {"service": [service.process.pid for service in cluster.services.values()],
             "HAProxy": [cluster.proxy.process.pid],
             "database": [] if "SQLite" in label else [cluster.postgres.process.pid]}
    for kind, name in (("create", "creates"), ("get", "gets")):
        before = {part: processor_seconds(*pids) for part, pids in parts.items()}
        figures = load(cluster.stage, PORT, kind, seconds=SECONDS)
        count = max(figures["rate"] * SECONDS, 1)
        cost = ", ".join(f"{part} {(processor_seconds(*pids) - before[part]) / count * 1e6:.0f} us"
                         for part, pids in parts.items() if pids)
        print(f"{label + ', ' + name:44} {figures['rate']:8.0f} /s  p50 {figures['p50']:.1f} ms, p99 "
              f"{figures['p99']:.1f} ms; processor for each: {cost}", flush=True)
        if figures["rate"] < 100:
            missed.append(f"{label}, {name}")


def end_services(cluster):
    for service in cluster.services.values():
        service.end()
    cluster.services.clear()


def start_services(cluster, *numbers):
    end_services(cluster)
    for number in numbers:
        cluster.start_service(number)
    time.sleep(1)
    wait_until(cluster.is_well, 10, "the services behind HAProxy")


def main():
    skip_where_missing("haproxy", "psql", "/usr/lib/postgresql/*/bin/postgres")
    enter_own_network()
    links = int(sys.argv[2]) if len(sys.argv) > 2 else 10_000_000
    print(f"load of the machine before: {os.getloadavg()[0]:.1f} on {os.cpu_count()} cores; clients, HAProxy, "
          "services and database share them")
    with Stage(os.path.abspath(sys.argv[1])) as stage:
        # Both databases, and the server's log beside the rows.
        needed = links * BYTES_OF_A_LINK * 3 + 10e9
        free = shutil.disk_usage(stage.folder).free
        if free < needed:
            sys.exit(f"{links} links need {needed / 1e9:.0f} GB in {stage.folder}; {free / 1e9:.0f} GB are free")
        cluster = Cluster(stage, FREE)
        cluster.start_postgres(SERVER)
        cluster.start_service(1)
        begun = time.monotonic()
        fill(stage, links)
        print(f"{links} links stored in {time.monotonic() - begun:.0f} s", flush=True)
        show("PostgreSQL: size of a link", int(sql(stage, "SELECT pg_total_relation_size('links')")) / links,
             "bytes", BYTES_OF_A_LINK)
        cluster.start_proxy()
        for label, numbers in (("PostgreSQL, one service", (1,)), ("PostgreSQL, two services", (1, 2))):
            start_services(cluster, *numbers)
            measure(cluster, label)
        show("memory of a service", resident_megabytes(cluster.services[1].process.pid), "MB", 200)
        end_services(cluster)

        begun = time.monotonic()
        moved = subprocess.run([os.path.join(stage.build, "zelvo-service"), "migrate", cluster.database,
                                stage.path("links.sqlite")], check=True, capture_output=True, text=True).stdout
        took = time.monotonic() - begun
        count = int(moved.split()[0])
        print(f"moved to SQLite: {count} links in {took:.0f} s, {count / took:.0f} /s", flush=True)
        if count != int(sql(stage, "SELECT count(*) FROM links")):
            missed.append("links moved")
        show("SQLite: size of a link", os.path.getsize(stage.path("links.sqlite")) / count, "bytes",
             BYTES_OF_A_LINK)
        cluster.database = stage.path("links.sqlite")
        start_services(cluster, 1)
        measure(cluster, "SQLite, one service")
        cluster.end_postgres()
    print(f"load of the machine after: {os.getloadavg()[0]:.1f}")
    finish()


if __name__ == "__main__":
    main()
