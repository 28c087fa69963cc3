"""Orbelle scripts as Locust users.

Subclass OrbelleUser in a locustfile and name its scripts:

    from orbelle_locust import OrbelleUser
    from locust import between

    class Visit(OrbelleUser):
        scripts = ["scripts/06-load.orb"]
        wait_time = between(0.5, 1.5)

Each user drives a child `orbelle-run --serve`: one line "run" per task runs
one iteration of the scripts, and the child's events (one JSON object per
line on a pipe of their own) become Locust request events: one per call that
sends a request (invoke, poll, wait), per check and per transaction. bind,
params and release send nothing and are left out. The scripts' set-up runs
when the user starts (its events come with the first task's, named
"setup: ..."), their tear-down when it stops ("teardown: ..."). Needs nothing but Locust
(Debian's python3-locust 2.12.1 included, whose faults this module works
around on import).

Environment:
    ORBELLE_RUN          path of orbelle-run (else PATH, else the build tree
                         beside this file)
    ORBELLE_LOCUST_UNIT  "ms" (the default) or "us": response times in
                         microseconds, request type "CORBA (us)"
"""

import itertools
import json
import logging
import os
import shutil
import signal
import time

import locust
import locust.main
import locust.runners
import locust.stats
import locust.web
import gevent
import gevent.os
import gevent.subprocess
from locust import User, events
from locust.exception import StopUser

__all__ = ["OrbelleUser", "CorbaFailure", "find_runner"]

logger = logging.getLogger("orbelle")

# Debian's package reports an empty version; a master then takes every worker
# for a pre-2.0 one and turns it away. This is the version that package holds.
LOCUST_VERSION_FALLBACK = "2.12.1"
# Lines handled before the read loop lets other greenlets run: a child that
# writes fast would otherwise keep every other user of the worker waiting.
YIELD_EVERY_LINES = 32
# Longest event line taken from a child; a longer one means the child is
# broken and the user stops.
MAX_EVENT_LINE = 1 << 20
READ_CHUNK = 65536
# How long a child that was told to end (its input closed) may take to
# release what it bound and print its summary before it is killed. A
# worker's last report must reach the master within about half a second
# of a quit, so stopping a user may not take longer.
CHILD_EXIT_S = 0.3
# Users numbered per worker when the number of workers is not known
# (--expect-workers): worker i numbers its users i * VU_STRIDE + 1, ...
VU_STRIDE = 10000
NO_ROWS_LEFT = "no data row is left for this user"
SETUP_FAILED = "the set-up failed at "
# Library calls that send nothing to a server, also in set-up and tear-down.
LOCAL_CALLS = tuple(section + call for section in ("", "setup: ", "teardown: ")
                    for call in ("bind ", "params ", "release "))


def _fix_locust_version():
    if locust.__version__:
        return
    for module in (locust, locust.runners):
        module.__version__ = LOCUST_VERSION_FALLBACK
    locust.main.version = LOCUST_VERSION_FALLBACK
    locust.web.version = LOCUST_VERSION_FALLBACK


def _time_unit():
    unit = os.environ.get("ORBELLE_LOCUST_UNIT", "ms")
    if unit == "ms":
        return 1.0, "CORBA"
    if unit == "us":
        return 1000.0, "CORBA (us)"
    raise ValueError("ORBELLE_LOCUST_UNIT takes ms or us, not %r" % unit)


_fix_locust_version()
_SCALE, REQUEST_TYPE = _time_unit()


class _FinalCSVWriter(locust.stats.StatsCSVFileWriter):
    """Locust's CSV writer, plus a last complete write when Locust quits: its
    own writer leaves the files unflushed at exit (the stats file misses the
    end of the run, the history file keeps only its first rows)."""

    writers = []

    def __init__(self, *args, **kwargs):
        super().__init__(*args, **kwargs)
        _FinalCSVWriter.writers.append(self)

    def write_final(self):
        tables = (
            (self.requests_csv_filehandle, self.requests_csv_writer, self.requests_csv_columns,
             self._requests_data_rows),
            (self.failures_csv_filehandle, self.failures_csv_writer, self.failures_columns,
             self._failures_data_rows),
            (self.exceptions_csv_filehandle, self.exceptions_csv_writer, self.exceptions_columns,
             self._exceptions_data_rows),
        )
        for handle, writer, columns, rows in tables:
            if handle.closed:
                continue
            handle.seek(0)
            writer.writerow(columns)
            rows(writer)
            handle.truncate()
        history = self.stats_history_csv_filehandle
        if not history.closed:
            if history.tell() == 0:
                self.stats_history_csv_writer.writerow(self.stats_history_csv_columns)
            self._stats_history_data_rows(self.stats_history_csv_writer, time.time())
        self.close_files()


# main() looks the class up when it makes the writer, after it has imported
# the locustfile, so the replacement takes effect.
locust.main.StatsCSVFileWriter = _FinalCSVWriter


@events.quit.add_listener
def _write_final_csvs(**_kwargs):
    for writer in _FinalCSVWriter.writers:
        writer.write_final()
    _FinalCSVWriter.writers.clear()


_live_children = set()


# Users stop before Locust fires quit, so this finds only children whose user
# could not end them.
@events.quit.add_listener
def _kill_children(**_kwargs):
    for child in list(_live_children):
        _kill(child)


def _kill(child):
    _live_children.discard(child)
    if child.poll() is None:
        try:
            child.send_signal(signal.SIGKILL)
        except ProcessLookupError:
            pass
    try:
        child.wait(timeout=CHILD_EXIT_S)
    except gevent.subprocess.TimeoutExpired:
        logger.error("orbelle-run %d did not end after SIGKILL", child.pid)


def find_runner():
    """orbelle-run: $ORBELLE_RUN, else on PATH, else in the build tree of the
    checkout that holds this file."""
    path = os.environ.get("ORBELLE_RUN")
    if path:
        return path
    path = shutil.which("orbelle-run")
    if path:
        return path
    here = os.path.dirname(os.path.abspath(__file__))
    path = os.path.join(here, "..", "..", "build", "normal", "bin", "orbelle-run")
    if os.path.exists(path):
        return os.path.normpath(path)
    raise RuntimeError("orbelle-run not found: set ORBELLE_RUN or put it on PATH")


class CorbaFailure(Exception):
    """A failed call, check or transaction. Its text is what Locust's failure
    table groups by: the exception id, never text that changes per call."""

    def __repr__(self):
        return self.args[0]

    __str__ = __repr__


def failure_text(event):
    error = str(event.get("error", ""))
    at = error.find("IDL:")
    if at >= 0:
        end = at
        while end < len(error) and error[end] not in " \t\n,;()'\"":
            end += 1
        return error[at:end]
    if event.get("kind") == "check":
        return "check failed"
    if "status" in event:
        return "status %s, exception %s" % (event["status"], event.get("index", "?"))
    return error[:80] or "failed"


class _LineReader:
    """Lines from a pipe, read the gevent way. A line's pieces are joined only
    once its end has come, so a long line costs time in its length."""

    def __init__(self, fd):
        self.fd = fd
        gevent.os.make_nonblocking(fd)
        self.pieces = []  # of the line not yet ended
        self.pieces_size = 0
        self.lines = []
        self.handed = 0

    def next_line(self):
        """The next line without its newline, None at end of input (a last
        line cut short is dropped). Raises ValueError on an endless line."""
        while not self.lines:
            chunk = gevent.os.nb_read(self.fd, READ_CHUNK)
            if not chunk:
                return None
            self.pieces.append(chunk)
            self.pieces_size += len(chunk)
            if b"\n" in chunk:
                *self.lines, rest = b"".join(self.pieces).split(b"\n")
                self.pieces, self.pieces_size = [rest], len(rest)
                self.lines.reverse()
            if self.pieces_size > MAX_EVENT_LINE:
                raise ValueError("an event line longer than %d bytes" % MAX_EVENT_LINE)
        self.handed += 1
        if self.handed % YIELD_EVERY_LINES == 0:
            gevent.sleep(0)
        return self.lines.pop()


_local_users = itertools.count(1)


class OrbelleUser(User):
    """A virtual user that runs Orbelle scripts, one iteration per task.

    Subclass attributes: scripts (paths, relative to workdir), workdir (the
    folder with idl/, by default the one locust runs in), trace (0 is off),
    users_total (for unique data rows: how many users share them), output
    (a folder that receives each child's text output as vu-K.txt; by default
    it is discarded), plus Locust's own weight and wait_time."""

    abstract = True
    scripts = []
    workdir = None
    trace = 0
    users_total = None
    output = None

    def __init__(self, environment):
        super().__init__(environment)
        self.vu = self._number()
        self._child = None
        self._reader = None
        self._in_iteration = False

    def _number(self):
        n = next(_local_users)
        runner = self.environment.runner
        if not isinstance(runner, locust.runners.WorkerRunner) or runner.worker_index < 0:
            return n
        options = self.environment.parsed_options
        workers = getattr(options, "expect_workers", 0) or 0
        if runner.worker_index < workers:
            return (n - 1) * workers + runner.worker_index + 1
        return runner.worker_index * VU_STRIDE + n

    def on_start(self):
        if not self.scripts:
            raise RuntimeError("%s names no scripts" % type(self).__name__)
        workdir = self.workdir or os.getcwd()
        read_end, write_end = os.pipe()
        command = [find_runner(), "--serve", "--events", "fd:%d" % write_end,
                   "--vu", str(self.vu)]
        if self.users_total:
            command += ["--users-total", str(self.users_total)]
        if self.trace:
            command += ["--trace", str(self.trace)]
        command += list(self.scripts)
        out = gevent.subprocess.DEVNULL
        if self.output:
            os.makedirs(self.output, exist_ok=True)
            out = open(os.path.join(self.output, "vu-%d.txt" % self.vu), "wb")
        try:
            self._child = gevent.subprocess.Popen(
                command, cwd=workdir, stdin=gevent.subprocess.PIPE, stdout=out,
                stderr=out if self.output else None, pass_fds=(write_end,), close_fds=True)
        except BaseException:
            os.close(read_end)
            raise
        finally:
            os.close(write_end)
            if self.output:
                out.close()
        _live_children.add(self._child)
        self._reader = _LineReader(read_end)

    def on_stop(self):
        child, self._child = self._child, None
        if child is None:
            return
        if self._in_iteration:
            # Stopped in the middle of an iteration: its calls are abandoned,
            # as Locust abandons any request of a user it kills.
            _kill(child)
        else:
            try:
                child.stdin.close()
                self._report_until_end(time.monotonic() + CHILD_EXIT_S)
                child.wait(timeout=CHILD_EXIT_S)
            except (OSError, ValueError, gevent.subprocess.TimeoutExpired):
                pass
            _kill(child)
        os.close(self._reader.fd)

    def _report_until_end(self, deadline):
        """Reports the events of the scripts' tear-down, which the child
        runs once its input ends, until it closes them or the time is up."""
        with gevent.Timeout(max(0.0, deadline - time.monotonic()), False):
            while True:
                line = self._reader.next_line()
                if line is None:
                    return
                try:
                    event = json.loads(line)
                except ValueError:
                    continue
                if isinstance(event, dict):
                    self._report(event)

    @locust.task
    def iteration(self):
        """Runs one iteration of the scripts and reports its events."""
        self._in_iteration = True
        try:
            self._child.stdin.write(b"run\n")
            self._child.stdin.flush()
        except OSError:
            self._child_ended()
        while True:
            try:
                line = self._reader.next_line()
            except ValueError as e:
                logger.error("user %d: %s; stopping the user", self.vu, e)
                raise StopUser()
            if line is None:
                self._child_ended()
            try:
                event = json.loads(line)
                if not isinstance(event, dict):
                    raise ValueError()
            except ValueError:
                logger.error("user %d: not an event: %r", self.vu, line[:200])
                continue
            if event.get("kind") == "iteration":
                self._in_iteration = False
                if event.get("error") == NO_ROWS_LEFT:
                    logger.info("user %d: %s", self.vu, NO_ROWS_LEFT)
                    raise StopUser()
                if str(event.get("error", "")).startswith(SETUP_FAILED):
                    logger.error("user %d: %s; it runs no iteration", self.vu, event["error"])
                    raise StopUser()
                return
            self._report(event)

    def _report(self, event):
        kind, name = event.get("kind"), str(event.get("name", ""))
        if kind not in ("call", "check", "transaction") or name.startswith(LOCAL_CALLS):
            return
        try:
            ms = float(event.get("ms", 0))
        except (TypeError, ValueError):
            logger.error("user %d: an event without a time: %r", self.vu, event)
            return
        events.request.fire(
            request_type=REQUEST_TYPE, name=name, response_time=ms * _SCALE, response_length=0,
            exception=None if event.get("ok") else CorbaFailure(failure_text(event)),
            context={})

    def _child_ended(self):
        self._in_iteration = False
        try:
            status = self._child.wait(timeout=CHILD_EXIT_S)
        except gevent.subprocess.TimeoutExpired:
            status = "unknown (it closed its events)"
        logger.error("user %d: orbelle-run ended with status %s; stopping the user", self.vu,
                     status)
        raise StopUser()
