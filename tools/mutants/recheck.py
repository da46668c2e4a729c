#!/usr/bin/env python3
"""Re-checks recorded mutants against the tests as they stand now: after tests were cut or moved,
is every fault they caught still caught?

usage: recheck.py MUTATE_PY REPO IN.jsonl OUT.jsonl [TEST-REGEX]

MUTATE_PY is the mutation tool (../shared/tools/mutate.py); its build, jail and test run are
reused. REPO is a clone with a configured, built build/ and clean sources (each mutant's diff is
applied there and the file restored afterwards). IN.jsonl holds mutants as the tool records them
(`site`, `file`, `diff`) plus `killers`, the ctest names that failed for each when it was killed.
With TEST-REGEX only the mutants having a killer that matches it are run. Each mutant is applied
and built; its former killers run first, and only if none fails, the whole suite. One line per
mutant, rows appended to OUT.jsonl (a second run resumes), and a last line counting the mutants
still killed and the LOST ones: a lost mutant names a fault whose check a cut removed."""
import importlib.util
import json
import os
import re
import subprocess
import sys
import tempfile

tool = importlib.util.spec_from_file_location("mutate", sys.argv[1])
M = importlib.util.module_from_spec(tool)
tool.loader.exec_module(M)
repo, src, dst = sys.argv[2:5]
select = re.compile(sys.argv[5]) if len(sys.argv) > 5 else None

rows = [json.loads(line) for line in open(src)]
for r in rows:
    # The map test compares docs/map.md with the tree: it fails on a stale map, not on a fault.
    r["killers"] = [k for k in r["killers"] if k != "catalogue/map"]
if select:
    rows = [r for r in rows if any(select.search(k) for k in r["killers"])]
done = {}
if os.path.exists(dst):
    done = {o["site"]: o for o in map(json.loads, open(dst))}

# A kill means something only if the clean tree passes.
clean = M.run_p(repo)
if clean["killed"]:
    sys.exit("the clean tree fails: %s" % clean["failed"])


def killers_fail(killers):
    """True or False; None when no test of those names exists any more."""
    regex = "^(" + "|".join(re.escape(k) for k in killers) + ")$"
    rc, out, _, timed_out = M.run(M.jail(repo) + ["ctest", "--test-dir", "build", "-j2", "--timeout", "120",
                                                  "-R", regex], repo, M.P_LIMIT_S)
    ran = re.search(r"tests failed out of (\d+)", out)
    if not ran or int(ran.group(1)) == 0:
        return None
    return bool(rc or timed_out)


for r in rows:
    if r["site"] in done:
        continue
    out = dict(site=r["site"], file=r["file"], killers=r["killers"])
    with tempfile.NamedTemporaryFile("w", suffix=".diff", delete=False) as f:
        f.write(r["diff"])
    applied = subprocess.run(["git", "-C", repo, "apply", f.name], capture_output=True).returncode == 0
    os.unlink(f.name)
    if not applied:
        out["status"] = "not_applicable"
    elif not M.build(repo)[0]:
        out["status"] = "not_viable"
    elif killers_fail(r["killers"]):
        out.update(status="killed", by="former killers")
    else:
        p = M.run_p(repo)
        out.update(status="killed" if p["killed"] else "LOST", by=p["failed"])
    if applied:
        subprocess.run(["git", "-C", repo, "checkout", "--", r["file"]])
    print("%s -> %s" % (r["site"], out["status"]), flush=True)
    with open(dst, "a") as f:
        f.write(json.dumps(out) + "\n")
    done[r["site"]] = out
M.build(repo)

results = [done[r["site"]] for r in rows if r["site"] in done]
lost = [o["site"] for o in results if o["status"] == "LOST"]
print("still killed %d, LOST %d, other %d" % (sum(o["status"] == "killed" for o in results), len(lost),
                                              len(results) - len(lost) - sum(o["status"] == "killed" for o in results)))
for site in lost:
    print("LOST", site)
