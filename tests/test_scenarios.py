"""Two-stage programs in blocks of scenarios: the extensive form, samples, and clusters whose workers die."""

import os
import signal
import subprocess
import sys
import time
from dataclasses import dataclass, replace
from pathlib import Path

import dask
import numpy as np
import pytest
from distributed import Client

import fragments
from support import ROOT, run_example  # first: it finds the scripts of examples/
from test_smps import dense, read

from host.blocks import RowStore
import scenarios as scenarios_script
from scenarios import FARMER, ClusterError, assemble, connect, digest, shards
from smps import read_smps
from two_stage import ScenarioSet

PATHS = os.pathsep.join([str(Path(fragments.__file__).parent), str(ROOT / "examples")])


def built(scenarios, parts, done=lambda scenario: None):
    store = RowStore(scenarios.nrows, scenarios.nnz, scenarios.ncols)
    assemble(scenarios, parts, store, done)
    return store


def here(scenarios, block):
    return (scenarios.build(first, min(first + block, scenarios.count)) for first in range(0, scenarios.count, block))


def test_extensive_form(tmp_path):
    program = read(tmp_path)
    scenarios = ScenarioSet(program)
    stores = [built(scenarios, here(scenarios, block)) for block in (1, 5, 99)]
    rows, lo, hi, cost = [[2.0, 1.0] + [0.0] * 24], [-np.inf], [11.0], [1.0, 4.0]
    for s, (p, T, W, c, lower, upper) in enumerate(dense(program)):
        rows += [[*t, *[0.0] * 2 * s, *w, *[0.0] * 2 * (11 - s)] for t, w in zip(T, W)]
        lo, hi, cost = lo + lower, hi + upper, cost + [p * value for value in c]
    for store in stores:
        assert store.matrix().toarray().tolist() == rows
        assert [array.tolist() for array in (*store.bounds(), store.more["cost"])] == [lo, hi, cost]
        assert store.more["upper"].tolist() == [np.inf] * 2 + [20.0, np.inf] * 12
    assert len({digest(store) for store in stores}) == 1


def test_samples(tmp_path):
    """Scenarios are drawn by their numbers, and as often as they are probable."""
    program = read(tmp_path)
    program = replace(program, random=2 * program.random)  # more than the stream gives in one step
    outcomes, weights = ScenarioSet(program, 20000, seed=7).draw(0, 20000)
    assert np.array_equal(weights, np.full(20000, 1 / 20000))
    for first, last in ((0, 1), (1, 4), (4999, 5000)):
        assert np.array_equal(ScenarioSet(program, 5000, seed=7).draw(first, last)[0], outcomes[first:last])
    assert not np.array_equal(ScenarioSet(program, 20000, seed=8).draw(0, 20000)[0], outcomes)
    for block, drawn in zip(program.random, outcomes.T):
        assert np.bincount(drawn) / 20000 == pytest.approx(block.probabilities, abs=0.02)
    assert abs(np.corrcoef(outcomes.T) - np.eye(6)).max() < 0.05
    with pytest.raises(ValueError, match="2147483650 columns"):
        ScenarioSet(program, 2**30)


@dataclass(frozen=True)
class Deadly:
    """The death of any process that it is sent to."""

    probabilities: tuple = ()

    def __reduce__(self):
        return os._exit, (1,)


@pytest.fixture
def cluster(tmp_path):
    """A client of a scheduler and two workers, all of them processes; the workers by their addresses."""
    def start(script, *arguments):
        return subprocess.Popen([sys.executable, "-m", f"distributed.cli.{script}", "--host", "127.0.0.1",
                                 "--no-dashboard", "--scheduler-file", tmp_path / "scheduler", *arguments],
                                env=dict(os.environ, PYTHONPATH=PATHS), cwd=tmp_path, stderr=subprocess.DEVNULL)

    processes = [start("dask_scheduler", "--port", "0")]
    try:
        options = ("--no-nanny", "--nthreads", "1", "--local-directory", tmp_path / "scratch")
        processes += [start("dask_worker", "--name", str(k), *options) for k in range(2)]
        with Client(scheduler_file=str(tmp_path / "scheduler"), timeout=60) as client:
            client.wait_for_workers(2, timeout=60)
            info = client.scheduler_info()["workers"]
            workers = {address: processes[1 + int(worker["name"])] for address, worker in info.items()}
            yield client, workers, processes[0]
    finally:
        for process in processes:
            process.kill()
            process.wait()


def test_deaths_of_workers_and_the_scheduler(cluster):
    client, workers, scheduler = cluster
    scenarios = ScenarioSet(read_smps(*FARMER), 1000)
    undisturbed = digest(built(scenarios, here(scenarios, 77)))

    def kill_one(scenario):
        """Kills the worker that holds the most shards, which are nowhere else, when the first is here."""
        while len(workers) == 2:
            held = {address: len(keys) for address, keys in client.has_what().items()}
            if sum(held.values()) > 4:
                workers.pop(max(held, key=held.get)).kill()

    assert digest(built(scenarios, shards(client, scenarios, 20), kill_one)) == undisturbed
    assert list(client.nthreads()) == list(workers)

    client.run_on_scheduler(lambda dask_scheduler: setattr(dask_scheduler, "allowed_failures", 0))
    deadly = ScenarioSet(replace(scenarios.program, random=[Deadly()]), 10)
    with pytest.raises(ClusterError, match="1 workers died of one block"):
        next(shards(client, deadly, 10))
    with pytest.raises(ClusterError, match="no worker .* for 0.5 s"):
        next(shards(client, scenarios, 10, patience=0.5))
    dask.config.set({"distributed.comm.timeouts.connect": "1s"})
    scheduler.kill()
    with pytest.raises(ClusterError, match="scheduler"):
        next(shards(client, scenarios, 10))


def test_worker_that_dies_as_it_starts(tmp_path, monkeypatch):
    deadly = tmp_path / "deadly.py"
    deadly.write_text("import os\nos._exit(1)\n")
    monkeypatch.setattr(scenarios_script, "START", 3.0)
    with dask.config.set({"distributed.worker.preload": [str(deadly)]}):
        with pytest.raises(ClusterError, match="has not started within 3 s"):
            with connect(None, 1):
                pass


def test_script(tmp_path):
    """On a cluster of its own, into a file."""
    path = tmp_path / "farmer.h5"
    run = run_example("scenarios.py", "--workers", 1, "--block", 2, "--file", path)
    found = dict(line.split(maxsplit=1) for line in run.stdout.splitlines())
    assert (run.returncode, found["status"], found["objective"], found["nonzeros"]) == (0, "optimal", "-108390", "33")
    assert "3 of 3 scenarios" in run.stderr
    assert digest(RowStore.open(str(path))) == found["digest"]

    for arguments, words in [(["--scheduler", "tcp://127.0.0.1:9"], "no scheduler answers at tcp://127.0.0.1:9"),
                             ([tmp_path / name for name in "abc"], "No such file"),
                             (["--scenarios", 10**9], "6000000003 columns")]:
        run = run_example("scenarios.py", *arguments)
        assert run.returncode == 2 and words in run.stderr and run.stderr.count("\n") == 1


@pytest.mark.parametrize("moment, number", [("starting", signal.SIGINT), ("starting", signal.SIGTERM),
                                            ("building", signal.SIGINT)])
def test_nothing_is_left_of_an_interrupted_run(tmp_path, moment, number):
    command = [sys.executable, ROOT / "examples" / "scenarios.py", "--scenarios", "30000000", "--workers", "1",
               "--block", "1000", "--file", tmp_path / "farmer.h5"]
    process = subprocess.Popen(command, env=dict(os.environ, PYTHONPATH=PATHS, TMPDIR=str(tmp_path)), text=True,
                               stderr=subprocess.PIPE, start_new_session=True,
                               # A shell makes what it runs in the background ignore SIGINT, which is inherited.
                               preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
    if moment == "starting":
        while not list(tmp_path.glob("scenarios-*/*/worker-*")):
            assert process.poll() is None
            time.sleep(0.05)
    else:
        assert "of 30000000 scenarios" in process.stderr.readline()
    if number == signal.SIGINT:
        os.killpg(process.pid, number)  # as a terminal does
    else:
        process.send_signal(number)
    assert (process.communicate(timeout=60)[1], process.returncode) == ("", 128 + number)
    with pytest.raises(ProcessLookupError):
        for _ in range(200):  # the last to go is the resource tracker of multiprocessing, once its parent has gone
            os.killpg(process.pid, 0)
            time.sleep(0.05)
    assert list(tmp_path.iterdir()) == []
