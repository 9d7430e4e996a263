#!/usr/bin/env python3
"""The GitHub action and the workflows that use it agree: they parse as YAML, the workflows give
only inputs the action defines (with values it handles) and read only outputs it sets, and the
workflow in docs/ci.md is the one users copy from docs/ci/render-gifs.yml.

Usage: action_files_test.py SOURCE_DIR
"""

import os
import re
import sys

import yaml

ACTION_NAMES = re.compile(r"^(\./|brimble/brimble@)")


def main(source):
    failures = []

    def check(ok, message):
        if not ok:
            failures.append(message)

    def load(relative):
        with open(os.path.join(source, relative), encoding="utf-8") as file:
            return yaml.safe_load(file)

    action = load("action.yml")
    inputs = action.get("inputs") or {}
    outputs = action.get("outputs") or {}
    runs = action.get("runs") or {}
    check(runs.get("using") == "composite", "action.yml: runs.using is not composite")
    steps = runs.get("steps") or []
    step_ids = {step.get("id") for step in steps if step.get("id")}
    action_text = yaml.safe_dump(action)
    for name in set(re.findall(r"inputs\.([A-Za-z0-9_-]+)", action_text)):
        check(name in inputs, f"action.yml reads inputs.{name}, which it does not define")
    for step_id in set(re.findall(r"steps\.([A-Za-z0-9_-]+)\.outputs", action_text)):
        check(step_id in step_ids, f"action.yml reads the outputs of a step '{step_id}' it lacks")
    for script in set(re.findall(r"\$GITHUB_ACTION_PATH/(scripts/[\w./-]+)", action_text)):
        path = os.path.join(source, script)
        check(os.access(path, os.X_OK), f"action.yml runs {script}, which is not an executable")
    # The install modes are the labels of the install step's `case`.
    install_step = next((s for s in steps if "$INSTALL" in s.get("run", "")), {})
    modes = set(re.findall(r"^\s*([a-z]+)\)", install_step.get("run", ""), re.M))
    check({"build", "package"} <= modes, f"action.yml installs by {sorted(modes)}")
    check(inputs.get("install", {}).get("default") in modes, "the default install mode is unknown")

    for relative in ("docs/ci/render-gifs.yml", ".github/workflows/demos.yml"):
        workflow = load(relative)
        # YAML 1.1 reads the key `on` as true.
        triggers = workflow.get("on", workflow.get(True)) or {}
        paths = (triggers.get("push") or {}).get("paths") or []
        check({"**.brim", "**.tape"} <= set(paths), f"{relative}: push does not watch scripts")
        uses_action = 0
        for job_name, job in (workflow.get("jobs") or {}).items():
            ids = {}
            for step in job.get("steps") or []:
                if ACTION_NAMES.match(step.get("uses", "")):
                    uses_action += 1
                    given = step.get("with") or {}
                    for name in given:
                        check(name in inputs, f"{relative}: {job_name} gives unknown input {name}")
                    mode = given.get("install", inputs.get("install", {}).get("default"))
                    check(mode in modes, f"{relative}: install '{mode}' is not one of {modes}")
                    if mode == "package":
                        url = str(given.get("package-url", ""))
                        check(re.search(r"/brimble_[0-9.]+_amd64\.deb$", url),
                              f"{relative}: package-url {url!r} names no brimble .deb")
                text = yaml.safe_dump(step)
                for step_id, output in re.findall(r"steps\.([\w-]+)\.outputs\.([\w-]+)", text):
                    check(step_id in ids, f"{relative}: reads outputs of unknown step {step_id}")
                    if ids.get(step_id):
                        check(output in outputs,
                              f"{relative}: reads output {output}, which the action lacks")
                if step.get("id"):
                    ids[step["id"]] = bool(ACTION_NAMES.match(step.get("uses", "")))
        check(uses_action == 1, f"{relative}: runs the action {uses_action} times")

    with open(os.path.join(source, "docs/ci/render-gifs.yml"), encoding="utf-8") as file:
        workflow_text = file.read()
    with open(os.path.join(source, "docs/ci.md"), encoding="utf-8") as file:
        blocks = re.findall(r"```yaml\n(.*?)```", file.read(), re.S)
    check(workflow_text in blocks, "docs/ci.md does not show docs/ci/render-gifs.yml as it is")

    for message in failures:
        print(f"FAIL: {message}", file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
