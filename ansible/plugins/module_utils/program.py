"""Runs zorv-label-state on a host, and tells which hosts cannot do it."""

from __future__ import annotations

import glob
import json
import os
import re
import subprocess
import tempfile
from typing import Any, Callable, NoReturn

from ansible.module_utils.basic import AnsibleModule
from ansible.module_utils.common.text.converters import to_text

PROGRAM = "zorv-label-state"
TOOL = "zorv-label-manager-tool"
LIBRARY = "libzorvlabelmgr.so"
BUNDLED = os.path.join("zorv-labelmgr-bundled", LIBRARY)
ERROR_LINES = 20  # that a message has at most


class Answer:
    """What one run said. Records are the lines before the last one, which is the sum."""

    def __init__(self) -> None:
        self.status = 0
        self.records: list[dict[str, Any]] = []
        self.sum: dict[str, int] | None = None
        self.errors: list[str] = []

    def message(self) -> str:
        """The program's own lines, without those of its logger."""
        own = [line for line in self.errors if line.startswith(PROGRAM + ":")]
        lines = (own or self.errors)[-ERROR_LINES:]
        return "\n".join(lines) or f"{PROGRAM} ended with status {self.status}"


class Program:
    """The program of one host. Where it cannot be used the module ends with the reason."""

    def __init__(self, module: AnsibleModule) -> None:
        self.module = module
        if os.geteuid() != 0:
            module.fail_json(msg="labels are for root alone: set become for this task")
        self.path = module.get_bin_path(PROGRAM)
        if self.path is None:
            module.fail_json(
                msg=f"{PROGRAM} is not installed here (package libzorvlabelmgr-bundled)"
            )
        self._require_bundled_library()

    def export(self) -> str:
        """What users set, as the text of a state file."""
        lines: list[str] = []
        answer = Answer()
        self._run(["export"], lines.append, answer)
        if answer.status != 0:
            self.fail(answer)
        return "".join(lines)

    def run(self, words: list[str], limit: int | None = None) -> Answer:
        """Keeps the first records up to a limit. Those about labels that follow from what
        users set are left to the sum: a pattern may concern any number of files."""
        answer = Answer()

        def take(line: str) -> None:
            record = json.loads(line)
            if "failed" in record or "add" in record:
                answer.sum = record
            elif record.get("action") != "label" and len(answer.records) != limit:
                answer.records.append(record)

        self._run(words, take, answer)
        return answer

    def fail(self, answer: Answer, **result: Any) -> NoReturn:
        result.setdefault("msg", answer.message())
        self.module.fail_json(rc=answer.status, stderr_lines=answer.errors, **result)

    def warn(self, answer: Answer) -> None:
        for line in answer.errors[:ERROR_LINES]:
            if line.startswith(PROGRAM + ":"):
                self.module.warn(line)

    def _run(self, words: list[str], take: Callable[[str], None], answer: Answer) -> None:
        environment = dict(os.environ, LC_ALL="C")
        with tempfile.TemporaryFile() as errors:
            with subprocess.Popen(
                [self.path] + words,
                stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE,
                stderr=errors,
                env=environment,
            ) as process:
                for line in process.stdout:
                    take(to_text(line))
            answer.status = process.returncode
            errors.seek(0)
            answer.errors = to_text(errors.read(), errors="surrogate_or_replace").splitlines()

    # The program works on the store of the bundled label manager. Where the tool, and so
    # everything else, uses another one, a change there would be one that nobody sees.
    def _require_bundled_library(self) -> None:
        tool = self.module.get_bin_path(TOOL)
        if tool is None:
            return
        ldd = self.module.get_bin_path("ldd", required=True)
        status, out, err = self.module.run_command([ldd, tool])
        line = next((line.strip() for line in out.splitlines() if LIBRARY in line), "")
        used = re.search(r"=> (/.*) \(0x", line)
        if used is None:
            self.module.fail_json(msg=f"{tool} has no label manager library: {line or err.strip()}")
        library = os.path.realpath(used.group(1))
        if not self._is_bundled(library):
            self.module.fail_json(
                msg=f"another label manager is in use here, {library}; {PROGRAM} serves "
                f"the bundled one: {line}"
            )

    # A package puts it into a directory of its own; "cmake --install" among the others.
    def _is_bundled(self, library: str) -> bool:
        prefix = os.path.dirname(os.path.dirname(os.path.realpath(self.path)))
        bundled = [
            os.path.realpath(path)
            for pattern in ("lib*", os.path.join("lib*", "*"))
            for path in glob.glob(os.path.join(glob.escape(prefix), pattern, BUNDLED))
        ]
        return library in bundled if bundled else library.startswith(os.path.join(prefix, "lib"))
