"""Batch runs: one pipeline over many films, on a Dask cluster.

    python3 -m thermokit.batch DIR [DIR|GLOB|@LIST ...] -o OUT [options]

Each film selected (every *.film under a folder, the files of a glob, the
lines of a list file given as @LIST) is one task: correct it (--nuc,
--badpixels, --mapping: a corrected film), measure every frame (--stats: a
CSV, with temperatures through --calib FILE or --embedded and the object
parameters), export its temperatures or levels (--npy), demodulate it
(--lockin with --frequency: module and phase films and pictures) and draw
one frame (--picture). The options are the thermokit tool's, and every file
written is the one the tool writes for the same film and options, byte for
byte: the work is the library's, the same code as the tool's commands.

Outputs are laid out under OUT as the films are under their folder (the
folder given, the fixed part of a glob, the common folder of a list), each
written under a temporary name and renamed once complete. OUT/summary.csv
and OUT/summary.json hold one row per film: film, frames, status (done,
skipped, failed), error (the tool's error line), wall time, the worker, and
the film's figures (lowest minimum, highest maximum and mean over its
frames, in temperatures when converted, else levels).

The work runs on a running Dask cluster (--scheduler ADDRESS) or on a
LocalCluster of one worker process per core (--workers N) that starts and
stops with the run. A failed film is a row, never the end of the run; a
worker that dies costs a retry of its films on another. A film whose
outputs are all there and newer than it is skipped (--force redoes it),
unless the options changed since the last run.
"""
import argparse
import contextlib
import csv
import fnmatch
import glob
import io
import json
import logging
import math
import os
import socket
import sys
import time
import uuid

import thermokit

__all__ = ["run", "main", "process_film"]

_CONVERSION = ("calib", "embedded", "emissivity", "reflected", "atmosphere", "transmission", "distance", "kelvin")
_PICTURE = ("frame", "palette", "palette_file", "range", "cut", "isotherm", "bar")
_SUMMARY_COLUMNS = ("film", "frames", "status", "error", "wall_s", "worker", "unit", "min", "max", "mean")


class UsageError(ValueError):
    """Options or inputs that cannot make a run (exit status 2)."""


# ---------------------------------------------------------------- selection

def _is_glob(text):
    return any(c in text for c in "*?[")


def select(inputs, pattern="*.film"):
    """The films of the inputs as (path, name): name is the path under the
    input's folder, with which outputs are laid out. Folders are searched
    for files matching pattern, globs expanded (** crosses folders), @LIST
    files read (one path a line, relative to the list's folder; blank lines
    and lines starting with # skipped); any other input is one film."""
    films = []
    for given in inputs:
        given = os.fspath(given)
        if given.startswith("@"):
            listed = given[1:]
            try:
                with open(listed, encoding="utf-8") as f:
                    lines = [line.strip() for line in f]
            except OSError as e:
                raise UsageError(f"file {listed}: cannot be read ({e.strerror})") from None
            folder = os.path.dirname(listed)
            paths = [os.path.join(folder, line) for line in lines if line and not line.startswith("#")]
            if not paths:
                raise UsageError(f"file {listed}: lists no film")
            base = os.path.commonpath([os.path.dirname(os.path.abspath(p)) for p in paths])
            films += [(p, os.path.relpath(os.path.abspath(p), base)) for p in paths]
        elif os.path.isdir(given):
            found = []
            for folder, dirs, files in os.walk(given):
                dirs.sort()
                found += [os.path.join(folder, n) for n in sorted(files) if fnmatch.fnmatch(n, pattern)]
            if not found:
                raise UsageError(f"{given}: no file matching {pattern} in this folder")
            films += [(p, os.path.relpath(p, given)) for p in found]
        elif _is_glob(given):
            found = sorted(p for p in glob.glob(given, recursive=True) if os.path.isfile(p))
            if not found:
                raise UsageError(f"{given}: no file matches")
            parts = given.split(os.sep)
            fixed = []
            for part in parts[:-1]:
                if _is_glob(part):
                    break
                fixed.append(part)
            base = os.sep.join(fixed) or "."
            if given.startswith(os.sep) and not fixed[1:]:
                base = os.sep
            films += [(p, os.path.relpath(p, base)) for p in found]
        else:
            # One film; a missing one is a failed row, as any film that cannot be read.
            films.append((given, os.path.basename(given)))
    seen = {}
    for path, name in films:
        if name in seen and os.path.abspath(seen[name]) != os.path.abspath(path):
            raise UsageError(f"{seen[name]} and {path}: both would write their outputs as {name}")
        seen[name] = path
    unique, done = [], set()
    for path, name in films:
        if name not in done:
            unique.append((path, name))
            done.add(name)
    return unique


# ---------------------------------------------------------------- one film

def _outputs(options, output, name):
    """The files a film's work writes, by kind."""
    stem = name[:-5] if name.endswith(".film") else name
    base = os.path.join(output, stem)
    out = {}
    if options["corrections"]:
        out["film"] = base + ".film"
    if options["stats"]:
        out["csv"] = base + ".csv"
    if options["npy"]:
        out["npy"] = base + ".npy"
    if options["lockin"]:
        for part in ("_module.film", "_phase.film", "_module.png", "_phase.png"):
            out["lockin" + part] = base + part
    if options["picture"]:
        out["png"] = base + ".png"
    return out


def _figures(table, conversion):
    """The film's figures from its per-frame statistics: lowest minimum,
    highest maximum and the mean over every value measured."""
    names = table.dtype.names
    if len(names) > 7:  # converted: the columns of the unit, NaN left out
        unit = names[7][:-len("_min")]
        counts = table[unit + "_pixels"].astype(float)
        mins, maxs, means = table[unit + "_min"], table[unit + "_max"], table[unit + "_mean"]
    else:
        unit = "" if conversion.get("calib") or conversion.get("embedded") else "DL"
        counts = table["pixels"].astype(float)
        mins, maxs, means = table["min"], table["max"], table["mean"]
    valid = counts > 0
    if not valid.any():
        return unit, math.nan, math.nan, math.nan
    weights = counts[valid]
    return (unit, float(mins[valid].min()), float(maxs[valid].max()),
            float((means[valid] * weights).sum() / weights.sum()))


def process_film(job):
    """The work of one film (runs on a worker): its summary row. Every
    failure the library tells becomes the row's error, with the tool's text.
    job["threads"]: the library's threads for the film (None: the worker's
    default)."""
    with thermokit.threads(job.get("threads")):
        return _process_film(job)


def _process_film(job):
    start = time.perf_counter()
    options, out = job["options"], job["outputs"]
    conversion = options["conversion"]
    row = {"film": job["name"], "frames": None, "status": "done", "error": "", "wall_s": None,
           "worker": f"{socket.gethostname()}:{os.getpid()}", "unit": "", "min": math.nan, "max": math.nan,
           "mean": math.nan, "threads": thermokit.get_threads()}
    try:
        for path in out.values():
            os.makedirs(os.path.dirname(path) or ".", exist_ok=True)
        source = job["path"]
        if options["corrections"]:
            thermokit.correct(source, out["film"], **options["corrections"])
            source = out["film"]
        table = thermokit.stats(source, roi=options["roi"], region_file=options["region_file"], csv=out.get("csv"),
                                **conversion)
        row["frames"] = len(table)
        row["unit"], row["min"], row["max"], row["mean"] = _figures(table, conversion)
        if options["npy"]:
            thermokit.export(source, out["npy"], format="npy", **conversion)
        if options["lockin"]:
            lockin = options["lockin"]
            thermokit.lockin(source, lockin["frequency"], frame_rate=lockin["frame_rate"], filter=lockin["filter"],
                             output=out["lockin_module.film"][:-len("_module.film")])
        if options["picture"]:
            p = options["picture"]
            thermokit.render(source, out["png"], frame=p["frame"], palette=p["palette"], palette_file=p["palette_file"],
                             range=p["range"], cut=p["cut"], isotherms=p["isotherm"], bar=p["bar"], **conversion)
    except (OSError, ValueError, IndexError, TypeError) as e:
        row["status"], row["error"] = "failed", str(e)
        if row["frames"] is None:
            with contextlib.suppress(OSError, ValueError):
                with thermokit.open(job["path"]) as film:
                    row["frames"] = len(film)
    row["wall_s"] = time.perf_counter() - start
    return row


def _complete(path, out):
    """All of a film's outputs are there and none is older than the film."""
    try:
        newest_input = os.stat(path).st_mtime_ns
        return all(os.stat(p).st_mtime_ns >= newest_input for p in out.values())
    except OSError:
        return False


def _remove_leftovers(out):
    """Temporary files of outputs whose writer died before renaming them."""
    for path in out.values():
        folder, name = os.path.split(path)
        for leftover in glob.glob(os.path.join(glob.escape(folder or "."), "." + glob.escape(name) + ".part-*")):
            with contextlib.suppress(OSError):
                os.remove(leftover)


# ---------------------------------------------------------------- the run

def _check(options):
    """Options that no film can change: checked once, before any work."""
    try:
        thermokit._check_conversion(**options["conversion"])
        if options["picture"]:
            p = options["picture"]
            thermokit._check_picture(p["palette"], p["palette_file"], p["range"], p["cut"], p["isotherm"], p["bar"])
    except ValueError as e:
        raise UsageError(str(e)) from None
    if options["roi"] and options["region_file"]:
        raise UsageError("--roi and --region-file: give one of them")
    if options["lockin"]:
        lockin = options["lockin"]
        if not (lockin["frequency"] and lockin["frequency"] > 0):
            raise UsageError("--lockin needs --frequency HZ above 0")
        if lockin["filter"] not in ("lowpass", "median", "none"):
            raise UsageError(f"--filter {lockin['filter']}: expected lowpass, median or none")
    files = list(options["corrections"].values()) + [options["conversion"].get("calib"), options["region_file"]]
    for path in files:
        if path and not os.path.isfile(path):
            raise UsageError(f"file {path}: not found")


def _options(nuc, badpixels, mapping, stats, npy, lockin, frequency, frame_rate, filter, picture, roi, region_file,
             conversion, picture_options):
    corrections = {k: v for k, v in (("nuc", nuc), ("badpixels", badpixels), ("mapping", mapping)) if v}
    return {
        "corrections": corrections,
        "stats": bool(stats),
        "npy": bool(npy),
        "lockin": {"frequency": frequency, "frame_rate": frame_rate, "filter": filter or "none"} if lockin else None,
        "picture": picture_options if picture else None,
        "roi": roi,
        "region_file": region_file,
        "conversion": {k: v for k, v in conversion.items() if v not in (None, False)},
    }


def _guarded(test):
    """`__name__ == "__main__"` (either way round)."""
    import ast
    if not (isinstance(test, ast.Compare) and len(test.ops) == 1 and isinstance(test.ops[0], ast.Eq)):
        return False
    sides = [test.left, test.comparators[0]]
    return (any(isinstance(x, ast.Name) and x.id == "__name__" for x in sides)
            and any(isinstance(x, ast.Constant) and x.value == "__main__" for x in sides))


# The worker processes of a local cluster are started by the spawn method,
# which imports the caller's script again in each: a batch at the script's
# top level would start again in every worker, and no worker would ever be
# ready. Such a run is refused before anything is written or started.
_UNGUARDED = ("a local cluster's worker processes import the calling script again: run the batch "
              "under `if __name__ == \"__main__\":` in a script")


def _unguarded_script_line():
    """The line of the running script (or `-m` module) from whose top level,
    outside `if __name__ == "__main__":`, this call was made; None when the
    call comes from a guarded block, a function called later, `python3 -c` or
    an interactive session. The worker processes of a local cluster import
    that script again, and such a line would run again in each of them."""
    import ast
    import dask
    main = sys.modules.get("__main__")
    path = getattr(main, "__file__", None)
    if not path or dask.config.get("distributed.worker.multiprocessing-method", "spawn") == "fork":
        return None
    frame = sys._getframe(1)
    while frame is not None and not (frame.f_globals is vars(main) and frame.f_code.co_name == "<module>"):
        frame = frame.f_back
    if frame is None:
        return None
    line = frame.f_lineno
    try:
        with open(path, "rb") as f:
            tree = ast.parse(f.read(), path)
    except (OSError, SyntaxError, ValueError):
        return None
    for node in ast.walk(tree):
        if isinstance(node, ast.If) and _guarded(node.test) and node.body:
            if node.body[0].lineno <= line <= (node.body[-1].end_lineno or line):
                return None
    return f"{path}, line {line}"


@contextlib.contextmanager
def _client(scheduler, workers):
    """A client of the scheduler at that address, or of a LocalCluster of
    worker processes (one per core, one thread each) for the run."""
    import distributed
    if scheduler:
        try:
            client = distributed.Client(scheduler, timeout="20s")
        except (OSError, TimeoutError) as e:
            raise OSError(f"--scheduler {scheduler}: cannot connect ({e})") from None
        with client:
            yield client
        return
    import multiprocessing
    if getattr(multiprocessing.current_process(), "_inheriting", False):
        raise UsageError(_UNGUARDED)
    with distributed.LocalCluster(n_workers=_local_workers(workers), threads_per_worker=1, processes=True,
                                  dashboard_address=":0", silence_logs=logging.ERROR) as cluster, \
            distributed.Client(cluster) as client:
        yield client


def _cores():
    """The cores this process may run on."""
    try:
        return len(os.sched_getaffinity(0)) or 1
    except (AttributeError, OSError):
        return os.cpu_count() or 1


def _local_workers(workers):
    return workers or _cores()


def _task_threads(threads, scheduler, workers, client):
    """The library's threads for each film's task: the count asked for; else
    on a local cluster the cores shared among its workers (every core for
    one worker, one each for one worker per core), unless THERMOKIT_THREADS
    is set (the workers inherit it); else None: each worker's own default
    (one thread, as a task runs on a thread other than the worker's main
    one, or THERMOKIT_THREADS of the worker's environment)."""
    if threads is not None:
        return int(threads)
    if client is not None or scheduler or os.environ.get("THERMOKIT_THREADS"):
        return None
    return max(1, _cores() // _local_workers(workers))


def _previous(summary):
    try:
        with open(summary, encoding="utf-8") as f:
            data = json.load(f)
        return data.get("options"), {row["film"]: row for row in data.get("films", [])}
    except (OSError, ValueError, KeyError, TypeError, AttributeError):
        return None, {}


def _write_whole(path, text):
    temp = os.path.join(os.path.dirname(path) or ".", f".{os.path.basename(path)}.part-{os.getpid()}")
    try:
        with open(temp, "w", encoding="utf-8", newline="") as f:
            f.write(text)
        os.replace(temp, path)
    except BaseException:
        with contextlib.suppress(OSError):
            os.remove(temp)
        raise


def _summary_csv(rows):
    text = io.StringIO()
    w = csv.writer(text, lineterminator="\n")
    w.writerow(_SUMMARY_COLUMNS)
    for r in rows:
        def number(v, spec):
            return "" if v is None or (isinstance(v, float) and math.isnan(v)) else format(v, spec)
        w.writerow([r["film"], "" if r["frames"] is None else r["frames"], r["status"], r["error"],
                    number(r["wall_s"], ".3f"), r["worker"], r["unit"], number(r["min"], ".9g"),
                    number(r["max"], ".9g"), number(r["mean"], ".17g")])
    return text.getvalue()


def _json_value(v):
    return None if isinstance(v, float) and not math.isfinite(v) else v


def run(inputs, output, *, pattern="*.film", nuc=None, badpixels=None, mapping=None, stats=False, npy=False,
        lockin=False, frequency=None, frame_rate=None, filter="none", picture=False, frame=0, palette="2",
        palette_file=None, range=None, cut=None, isotherm=(), bar=False, roi=None, region_file=None, calib=None,
        embedded=False, emissivity=None, reflected=None, atmosphere=None, transmission=None, distance=None,
        kelvin=False, scheduler=None, workers=None, threads=None, force=False, progress=False, client=None):
    """Runs the batch; returns its summary rows (dicts), one per film in
    the order selected. UsageError (a ValueError) for options or inputs that
    cannot make a run; OSError when the output folder cannot be made or the
    scheduler cannot be reached. client: a distributed.Client to run on
    instead of scheduler/workers (left open). threads: the library's threads
    for each film (default: on a local cluster the cores shared among its
    workers, unless THERMOKIT_THREADS is set; on a cluster of your own each
    worker's default, one)."""
    conversion = {"calib": calib, "embedded": embedded, "emissivity": emissivity, "reflected": reflected,
                  "atmosphere": atmosphere, "transmission": transmission, "distance": distance, "kelvin": kelvin}
    picture_options = {"frame": int(frame), "palette": str(palette), "palette_file": palette_file, "range": range,
                       "cut": cut, "isotherm": list(isotherm or ()), "bar": bool(bar)}
    options = _options(nuc, badpixels, mapping, stats, npy, lockin, frequency, frame_rate, filter, picture, roi,
                       region_file, conversion, picture_options)
    if not (options["corrections"] or stats or npy or lockin or picture):
        raise UsageError("nothing to write: give --stats, --npy, --lockin, --picture or a correction "
                         "(--nuc, --badpixels, --mapping)")
    _check(options)
    if threads is not None and not (isinstance(threads, int) and 1 <= threads <= 4096):
        raise UsageError(f"--threads {threads}: from 1 to 4096 expected")
    task_threads = _task_threads(threads, scheduler, workers, client)
    if client is None and not scheduler:
        unguarded = _unguarded_script_line()
        if unguarded:
            raise UsageError(f"{_UNGUARDED} ({unguarded})")
    films = select(inputs, pattern)
    output = os.fspath(output)
    os.makedirs(output, exist_ok=True)
    summary = os.path.join(output, "summary")
    previous_options, previous_rows = _previous(summary + ".json")
    same_options = previous_options == json.loads(json.dumps(options))

    rows, jobs = [], []
    for path, name in films:
        out = _outputs(options, output, name)
        if os.path.abspath(out.get("film", "")) == os.path.abspath(path):
            raise UsageError(f"file {out['film']}: the output would overwrite the input film")
        if not force and same_options and _complete(path, out):
            old = previous_rows.get(name, {})
            rows.append({"film": name, "frames": old.get("frames"), "status": "skipped", "error": "",
                         "wall_s": 0.0, "worker": "", "unit": old.get("unit", ""),
                         "min": _nan(old.get("min")), "max": _nan(old.get("max")), "mean": _nan(old.get("mean")),
                         "threads": None})
        else:
            rows.append(None)
            jobs.append((len(rows) - 1, {"path": path, "name": name, "options": options, "outputs": out,
                                         "threads": task_threads}))

    if jobs:
        try:
            with contextlib.ExitStack() as stack:
                if client is None:
                    client = stack.enter_context(_client(scheduler, workers))
                for index, row in _compute(client, jobs, progress):
                    rows[index] = row
        finally:
            # Also when the run is interrupted: the films' tasks are cancelled (or their
            # workers stopped with the local cluster) before their temporary files go.
            for _, job in jobs:
                _remove_leftovers(job["outputs"])

    data = {"options": options, "films": [{k: _json_value(v) for k, v in r.items()} for r in rows]}
    _write_whole(summary + ".csv", _summary_csv(rows))
    _write_whole(summary + ".json", json.dumps(data, indent=1) + "\n")
    return rows


def _nan(v):
    return math.nan if v is None else v


def _compute(client, jobs, progress):
    """Submits one task a film and yields (index, row) once all are done.
    A task whose workers kept dying is a failed row."""
    import distributed
    run_id = uuid.uuid4().hex[:12]
    futures = [client.submit(process_film, job, key=f"thermokit-film-{index}-{run_id}", pure=False)
               for index, job in jobs]
    try:
        if progress:
            distributed.progress(futures)
        distributed.wait(futures)
    except BaseException:
        client.cancel(futures)
        raise
    for (index, job), future in zip(jobs, futures):
        if future.status == "finished":
            yield index, future.result()
            continue
        error = future.exception()
        text = str(error)
        if isinstance(error, distributed.KilledWorker):
            text = "the workers running it died (a crash or killed); it was retried and died again"
        yield index, {"film": job["name"], "frames": None, "status": "failed", "error": text, "wall_s": None,
                      "worker": "", "unit": "", "min": math.nan, "max": math.nan, "mean": math.nan, "threads": None}


# ---------------------------------------------------------------- command line

def _parser():
    p = argparse.ArgumentParser(
        prog="python3 -m thermokit.batch",
        description="Run one pipeline over many films on a Dask cluster: correct, measure, convert, demodulate, "
                    "draw; outputs laid out like the input, a summary table (CSV and JSON).",
        epilog="Example: python3 -m thermokit.batch films/ -o out/ --nuc cam.nuc --embedded --emissivity 0.95 "
               "--stats --npy\n         python3 -m thermokit.batch 'runs/**/*.film' -o out/ --lockin --frequency 0.5 "
               "--scheduler tcp://10.0.0.1:8786",
        formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("inputs", nargs="+", metavar="INPUT", help="a folder (its *.film, recursively), a glob, or @LIST")
    p.add_argument("-o", "--output", required=True, help="output folder")
    p.add_argument("--pattern", default="*.film", help="file names taken from folders (default *.film)")
    g = p.add_argument_group("correction (a corrected film; the outputs below are of it)")
    g.add_argument("--nuc", help="NUC table")
    g.add_argument("--badpixels", help="bad-pixel map")
    g.add_argument("--mapping", help="mapping file (pixel permutation)")
    g = p.add_argument_group("conversion (temperatures in --stats, --npy and --picture)")
    c = g.add_mutually_exclusive_group()
    c.add_argument("--calib", help="calibration file")
    c.add_argument("--embedded", action="store_true", help="each film's own radiometric law")
    g.add_argument("--emissivity", type=float, help="emissivity of the object (default: the film's header, else 1)")
    g.add_argument("--reflected", type=float, help="reflected temperature, degC (default: the film's header, else 20)")
    g.add_argument("--atmosphere", type=float, help="temperature of the air on the path, degC (default: reflected)")
    t = g.add_mutually_exclusive_group()
    t.add_argument("--transmission", type=float, help="transmission of the air on the path (default 1)")
    t.add_argument("--distance", type=float, help="distance to the object, metres")
    g.add_argument("--kelvin", action="store_true", help="temperatures in kelvin instead of degC")
    g = p.add_argument_group("outputs, per film")
    g.add_argument("--stats", action="store_true", help="NAME.csv: per-frame statistics (thermokit stats --csv)")
    r = g.add_mutually_exclusive_group()
    r.add_argument("--roi", help="statistics over the rectangle x,y,w,h")
    r.add_argument("--region-file", help="statistics over a region file")
    g.add_argument("--npy", action="store_true", help="NAME.npy: temperatures, or levels (thermokit export)")
    g.add_argument("--lockin", action="store_true", help="NAME_module/_phase .film and .png (thermokit lockin)")
    g.add_argument("--frequency", type=float, help="lock-in frequency, Hz")
    g.add_argument("--frame-rate", type=float, help="lock-in frames per second (default: the film's own)")
    g.add_argument("--filter", default="none", help="lock-in filter: lowpass, median or none")
    g.add_argument("--picture", action="store_true", help="NAME.png: one frame drawn (thermokit render)")
    g.add_argument("--frame", type=int, default=0, help="the frame drawn (default 0)")
    g.add_argument("--palette", default="2", help="palette name or number (default 2)")
    g.add_argument("--palette-file", help="palette file with custom palettes")
    g.add_argument("--range", help="display range LO:HI or auto (default)")
    g.add_argument("--cut", type=float, help="auto range: percent of pixels cut (default 1)")
    g.add_argument("--isotherm", action="append", default=[], help="LO:HI[:COLOUR] (at most 3)")
    g.add_argument("--bar", action="store_true", help="a colour bar beside the image")
    g = p.add_argument_group("the run")
    s = g.add_mutually_exclusive_group()
    s.add_argument("--scheduler", help="address of a running Dask scheduler (tcp://HOST:8786)")
    s.add_argument("--workers", type=int, help="worker processes of the local cluster (default: one per core)")
    g.add_argument("--threads", type=int, help="the library's threads for each film (default: the local cluster's "
                   "cores shared among its workers; on --scheduler, each worker's THERMOKIT_THREADS, else 1)")
    g.add_argument("--force", action="store_true", help="redo films whose outputs are complete")
    g.add_argument("-q", "--quiet", action="store_true", help="no progress bar and no closing line")
    return p


def main(argv=None):
    args = _parser().parse_args(argv)
    options = vars(args).copy()
    inputs, output, quiet = options.pop("inputs"), options.pop("output"), options.pop("quiet")
    if args.workers is not None and args.workers < 1:
        print("thermokit.batch: --workers: 1 or more expected", file=sys.stderr)
        return 2
    start = time.perf_counter()
    try:
        rows = run(inputs, output, progress=not quiet and sys.stdout.isatty(), **options)
    except UsageError as e:
        print(f"thermokit.batch: {e}", file=sys.stderr)
        return 2
    except OSError as e:
        print(f"thermokit.batch: {e}", file=sys.stderr)
        return 1
    failed = [r for r in rows if r["status"] == "failed"]
    for r in failed:
        print(f"thermokit.batch: {r['error']}", file=sys.stderr)
    if not quiet:
        counts = {s: sum(r["status"] == s for r in rows) for s in ("done", "skipped", "failed")}
        print(f"{len(rows)} film(s): {counts['done']} done, {counts['skipped']} skipped, {counts['failed']} failed "
              f"in {time.perf_counter() - start:.1f} s; summary {os.path.join(output, 'summary.csv')}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
