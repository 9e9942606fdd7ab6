"""Runs numbered trials in forked processes, so that a trial which crashes or hangs is named and the others go on."""

import json
import mmap
import os
import re
import select
import signal
import sys
import tempfile
import time
import traceback
from collections import Counter
from dataclasses import dataclass, field

TELLING = re.compile(r"ERROR: |runtime error: |SUMMARY: |Assertion|Fatal Python error| in .*/src/")
SECOND = 10**9


@dataclass
class Outcome:
    """How often each kind of outcome came, and (trial, text) of each finding."""

    counts: Counter = field(default_factory=Counter)
    findings: list = field(default_factory=list)
    interrupted: bool = False

    def report(self, name, seed):
        """Prints all and gives the exit status."""
        for trial, text in sorted(self.findings):
            print(f"\nmake {name} SEED={seed} ONLY={trial}\n{text}")
        counts = ", ".join(f"{count:,} {kind}" for kind, count in self.counts.items() if count)
        total, found = self.counts.total(), len(self.findings)
        print(f"{name}: seed {seed}, {total:,} calls: {counts}; {found} findings", flush=True)
        if self.interrupted:
            print(f"{name}: interrupted")
            return 130
        return 1 if self.findings else 0


class Progress:
    """A line that is rewritten on a terminal; elsewhere a line for every tenth of the work."""

    def __init__(self, total):
        self.total, self.shown, self.start = max(total, 1), 0, time.monotonic()
        self.is_terminal = sys.stderr.isatty()

    def show(self, done, note=""):
        step = done * (500 if self.is_terminal else 10) // self.total
        if step == self.shown:
            return
        self.shown = step
        text = f"{done:,} of {self.total:,}, {time.monotonic() - self.start:.0f} s{note}"
        print(f"\r{text}\x1b[K" if self.is_terminal else text, end="" if self.is_terminal else "\n", file=sys.stderr)
        sys.stderr.flush()

    def end(self):
        if self.is_terminal and self.shown:
            print(file=sys.stderr)


class Worker:
    """A process that runs trials one by one. What it shares: the trial that runs, or -1; the time at which it began, in
    nanoseconds; how often each kind of outcome came."""

    def __init__(self, trials, play, kinds):
        self.trials, self.play, self.kinds = trials, play, kinds
        self.shared = memoryview(mmap.mmap(-1, 8 * (2 + len(kinds)))).cast("q")
        self.errors = tempfile.TemporaryFile()
        self.start()

    def start(self):
        self.errors.seek(0)
        self.errors.truncate()
        self.shared[0] = -1
        sys.stdout.flush()
        sys.stderr.flush()
        self.end, writer = os.pipe()
        parent = os.getpid()
        self.pid = os.fork()
        if self.pid:
            os.close(writer)
            self.unread = b""
            return
        status = 1
        try:
            signal.signal(signal.SIGINT, signal.SIG_IGN)
            os.dup2(self.errors.fileno(), 2)
            with os.fdopen(writer, "w") as pipe:
                self.work(pipe, parent)
            status = 0
        except BaseException:
            traceback.print_exc()
        finally:
            sys.stderr.flush()
            os._exit(status)

    def work(self, pipe, parent):
        shared = self.shared
        places = {kind: 2 + k for k, kind in enumerate(self.kinds)}
        for done, trial in enumerate(self.trials):
            if done % 1000 == 0 and os.getppid() != parent:
                return
            shared[1] = time.monotonic_ns()
            shared[0] = trial
            kind, finding = self.play(trial)
            shared[places[kind]] += 1
            if finding:
                print(json.dumps([trial, finding]), file=pipe, flush=True)
        shared[0] = -1

    def counts(self):
        return Counter(dict(zip(self.kinds, self.shared[2:].tolist())))

    def is_over(self, limit):
        """Whether its trial has run for longer than the limit."""
        return bool(limit) and self.shared[0] >= 0 and time.monotonic_ns() - self.shared[1] > limit * SECOND

    def read(self):
        """Findings that have come, or None where the pipe is closed."""
        data = os.read(self.end, 1 << 16)
        *lines, self.unread = (self.unread + data).split(b"\n")
        return [tuple(json.loads(line)) for line in lines] if data else None

    def stop(self):
        """Ends the process if it is still there."""
        if self.pid:
            os.kill(self.pid, signal.SIGKILL)
            self.reap()

    def reap(self):
        """Waits for the end of the process and tells how it ended: "" if by itself and well."""
        _, status = os.waitpid(self.pid, 0)
        self.pid = None
        os.close(self.end)
        code = os.waitstatus_to_exitcode(status)
        if not code:
            return ""
        self.errors.seek(0)
        lines = self.errors.read().decode(errors="replace").splitlines()
        told = [line for line in lines if TELLING.search(line)] or lines[-12:]
        how = signal.Signals(-code).name if code < 0 else f"exit status {code}"
        return "\n".join([f"the process ended by {how}", *told[:12]])

    def go_on(self):
        """Starts again behind the trial that ended it. Whether there is any left."""
        if self.shared[0] < 0:
            return False
        self.trials = self.trials[self.trials.index(self.shared[0]) + 1 :]
        if self.trials:
            self.start()
        return bool(self.trials)


def command(name, player, kinds, options):
    """Runs what the options of `command_line` ask for, player.play(trial), and ends with the exit status."""
    if options.only is not None:
        print(player.describe(options.only))
    outcome = run(options.trials, player.play, kinds, options.processes, options.limit, player.describe, options.most)
    raise SystemExit(outcome.report(name, options.seed))


def run(trials, play, kinds, processes=None, limit=None, describe=str, most=20):
    """The Outcome of play(trial) -> (one of the kinds, finding or None) for each trial of a range, in `processes`
    processes.

    A trial that ends its process is a finding, with describe(trial) in front; one that runs for longer than `limit`
    seconds is ended and counted as "too slow". Ends after `most` findings, and cleanly at Ctrl-C.
    """
    outcome, progress = Outcome(), Progress(len(trials))
    ended = Counter()
    workers = []
    try:
        processes = min(processes or os.cpu_count(), len(trials))
        workers = [Worker(trials[k::processes], play, kinds) for k in range(processes)]
        active = list(workers)
        while active and len(outcome.findings) < most:
            ready, _, _ = select.select([worker.end for worker in active], [], [], 0.05)
            for worker in list(active):
                if worker.end in ready:
                    findings = worker.read()
                    if findings is not None:
                        outcome.findings += findings
                        continue
                    how = worker.reap()
                    if how:
                        ended["crashed"] += 1
                        trial = worker.shared[0]
                        outcome.findings.append((trial, f"{describe(trial)}\n{how}" if trial >= 0 else how))
                elif worker.is_over(limit):
                    worker.stop()
                    ended["too slow"] += 1
                else:
                    continue
                if not worker.go_on():
                    active.remove(worker)
            progress.show(sum(sum(worker.shared[2:]) for worker in workers))
    except KeyboardInterrupt:
        outcome.interrupted = True
    finally:
        for worker in workers:
            worker.stop()
        progress.end()
    outcome.counts = sum((worker.counts() for worker in workers), Counter()) + ended
    return outcome
