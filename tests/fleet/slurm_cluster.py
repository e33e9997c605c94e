"""A Slurm cluster of its own on this host: Debian's slurmctld, slurmd and munged in a private
directory, on ports of the loopback interface, with as many nodes as asked for under names of their
own. Nothing of it outlives the object."""

import os
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
from pathlib import Path

CONFIGURATION = """\
ClusterName=zyn
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={port}
SlurmUser={user}
SlurmdUser={user}
AuthType=auth/munge
AuthInfo=socket={place}/run/munge.socket,cred_expire=5
CredType=cred/munge
StateSaveLocation={place}/state
SlurmdSpoolDir={place}/spool/%n
SlurmctldPidFile={place}/run/slurmctld.pid
SlurmdPidFile={place}/run/slurmd.%n.pid
SlurmctldLogFile={place}/log/slurmctld.log
SlurmdLogFile={place}/log/slurmd.%n.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SelectType=select/linear
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
MpiDefault=none
ReturnToService=2
SlurmdTimeout=5
SlurmctldTimeout=5
SlurmdParameters=config_overrides
SchedulerParameters=batch_sched_delay=0,sched_min_interval=100000,requeue_delay=1
KillWait=1
"""


def wait_for(condition, what, seconds=60):
    """Asks until the condition holds; returns what it gave."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        found = condition()
        if found:
            return found
        time.sleep(0.05)
    raise TimeoutError(f"not within {seconds} s: {what}")


def free_ports(count):
    sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(count)]
    ports = [one.getsockname()[1] for one in sockets]
    for one in sockets:
        one.close()
    return ports


def processes():
    """Pid and command line of every process that can be seen."""
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                yield int(entry.name), (entry / "cmdline").read_bytes().replace(b"\0", b" ").decode(
                    errors="replace")
            except OSError:
                pass


def descendants(pids):
    """The processes below these, children before their own children."""
    children = {}
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                status = (entry / "status").read_text()
            except OSError:
                continue
            parent = int(re.search(r"^PPid:\s*(\d+)", status, re.MULTILINE).group(1))
            children.setdefault(parent, []).append(int(entry.name))
    found = []
    wanted = list(pids)
    while wanted:
        wanted = [child for pid in wanted for child in children.get(pid, [])]
        found += wanted
    return found


class SlurmCluster:
    def __init__(self, nodes):
        self.nodes = nodes
        self.place = Path(tempfile.mkdtemp(prefix="zynslurm"))
        self.environment = dict(os.environ, SLURM_CONF=str(self.place / "etc/slurm.conf"))
        for name in ("etc", "state", "log", "run", *(f"spool/{node}" for node in nodes)):
            (self.place / name).mkdir(parents=True)
        # munged insists on a way to its socket that others may take.
        self.place.chmod(0o755)
        (self.place / "run").chmod(0o755)
        key = self.place / "etc/munge.key"
        key.write_bytes(os.urandom(128))
        key.chmod(0o600)
        host = socket.gethostname().split(".")[0]
        port, *node_ports = free_ports(1 + len(nodes))
        text = CONFIGURATION.format(host=host, port=port, place=self.place,
                                    user=subprocess.check_output(["id", "-un"], text=True).strip())
        for node, node_port in zip(nodes, node_ports):
            text += (f"NodeName={node} NodeHostname={host} NodeAddr=127.0.0.1 Port={node_port} "
                     "CPUs=1 RealMemory=1000\n")
        text += "PartitionName=all Nodes=ALL Default=YES State=UP MaxTime=INFINITE\n"
        (self.place / "etc/slurm.conf").write_text(text)

    def __enter__(self):
        try:
            self.run("munged", f"--key-file={self.place}/etc/munge.key",
                     f"--socket={self.place}/run/munge.socket",
                     f"--pid-file={self.place}/run/munged.pid",
                     f"--log-file={self.place}/log/munged.log",
                     f"--seed-file={self.place}/run/munge.seed")
            self.run("slurmctld")
            for node in self.nodes:
                self.start_node(node)
            wait_for(lambda: all(self.state(node) == "idle" for node in self.nodes),
                     "the nodes are idle")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for node in self.nodes:
            self.kill_node(node)
        for name in ("slurmctld", "munged"):
            try:
                pid = int((self.place / f"run/{name}.pid").read_text())
                os.kill(pid, signal.SIGKILL)
            except (OSError, ValueError):
                pass
        shutil.rmtree(self.place, ignore_errors=True)

    def run(self, *command, **options):
        """Runs a command of the cluster's; its output."""
        result = subprocess.run(command, env=self.environment, text=True, timeout=60, check=False,
                                stdin=subprocess.DEVNULL, capture_output=True, **options)
        if result.returncode != 0:
            raise RuntimeError(f"{command}: {result.returncode}\n{result.stdout}{result.stderr}")
        return result.stdout

    def state(self, node):
        return self.run("sinfo", "-h", "-N", "-n", node, "-o", "%T").strip().rstrip("*")

    def start_node(self, node):
        self.run("slurmd", "-N", node)

    def kill_node(self, node):
        """As if its power went: the daemon, its steps and what they run, all at once."""
        log = str(self.place / f"log/slurmd.{node}.log")
        roots = []
        try:
            roots.append(int((self.place / f"run/slurmd.{node}.pid").read_text()))
        except (OSError, ValueError):
            pass
        # A step is no child of the daemon, but writes into its log.
        for pid, line in processes():
            if "slurmstepd" in line:
                try:
                    files = [os.readlink(f) for f in Path(f"/proc/{pid}/fd").iterdir()]
                except OSError:
                    continue
                if log in files:
                    roots.append(pid)
        for pid in roots + descendants(roots):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        return len(roots)

    def wait_for_job(self, job, seconds=180):
        """Waits until a job has ended; its state."""
        def ended():
            text = self.run("scontrol", "-o", "show", "job", job)
            states = set(re.findall(r"JobState=(\w+)", text))
            return not states & {"PENDING", "RUNNING", "COMPLETING", "CONFIGURING", "REQUEUED"} and (
                " ".join(sorted(states)) or None)
        return wait_for(ended, f"job {job} ends", seconds)
