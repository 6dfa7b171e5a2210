#!/usr/bin/python
"""What users set of labels, as data."""

DOCUMENTATION = r"""
module: state
short_description: Brings about what is set of the labels of files and packages
version_added: "1.0.0"
description:
  - Makes values of single files, rules for patterns and ids of packages what the task says, by one run
    of C(zorv-label-state apply) on the host, which is one change there. All of it holds, or the host is
    as it was.
  - Values and names are texts and values are hexadecimal, so they are to be quoted. A number is
    refused, as YAML would read C(10) as ten and C(010) as eight.
author: Zorv Label Tool Maintainers (!UNKNOWN)
options:
  paths:
    description: Values of single files and directories. The order means nothing.
    type: list
    elements: dict
    suboptions:
      path:
        description: The absolute name. It must exist unless I(allow_missing).
        type: raw
      path_latin1:
        description: A name that is no UTF-8, each byte as the character of that number.
        type: raw
      oid: &oid
        description: Object identifier, three groups of up to 16 digits joined by C(-).
        type: raw
      sid: &sid
        description: Subject identifier, written as an object identifier is.
        type: raw
      tid: &tid
        description: Type identifier, up to 8 digits.
        type: raw
      inherit_flag: &inherit_flag
        description: Inherit flag, C(0) to C(7).
        type: raw
  patterns:
    description: Rules for all files that match. Of those about one field the last that matches holds.
    type: list
    elements: dict
    suboptions:
      pattern:
        description: The absolute pattern. A star matches any text, a question mark one character.
        type: raw
      pattern_latin1:
        description: A pattern that is no UTF-8, each byte as the character of that number.
        type: raw
      oid: *oid
      sid: *sid
      tid: *tid
      inherit_flag: *inherit_flag
  packages:
    description: Ids of packages. The order means nothing.
    type: list
    elements: dict
    suboptions:
      package:
        description: The package's name.
        type: raw
      package_latin1:
        description: A name that is no UTF-8, each byte as the character of that number.
        type: raw
      id:
        description: The id, up to 16 digits.
        type: raw
        required: true
  src:
    description: A state file on the host, as C(zorv-label-state export) writes it, instead of lists.
    type: path
  keep_others:
    description:
      - Leave alone what is set and not listed. Otherwise it is removed, and then each of I(paths),
        I(patterns) and I(packages) must be there, if only as an empty list.
    type: bool
    default: false
  allow_missing:
    description: Take values of paths that are not there. They hold when the file's label is next derived.
    type: bool
    default: false
attributes:
  check_mode:
    description: The host says what would change, and nothing is written.
    support: full
  diff_mode:
    description: The exports before and after.
    support: full
notes:
  - Runs as root, on hosts with the bundled label manager.
  - Where some files of a pattern refuse their label, as those on read-only file systems do, the values
    hold nevertheless, and the task fails with C(changed) set.
"""

EXAMPLES = r"""
- name: Set this and nothing else
  zorv.label.state:
    paths:
      - path: /srv/www/index.html
        oid: "1-2-3"
        tid: "1f"
    patterns:
      - pattern: /srv/www/upload/*
        inherit_flag: "5"
    packages:
      - package: bash
        id: "c0ffee"

- name: Add one value to what is set
  zorv.label.state:
    keep_others: true
    paths:
      - path: /srv/www/index.html
        tid: "20"

- name: Bring about what a file on the host says
  zorv.label.state:
    src: /root/labels.json
"""

RETURN = r"""
changes:
  description: What was changed, or in check mode would be, in its order.
  returned: always
  type: list
  elements: dict
  sample:
    - {action: change, path: /srv/www/index.html, field: tid, former: "0000001e", value: "0000001f"}
summary:
  description: Number of changes of each kind, in check mode also of labels to be written.
  returned: success
  type: dict
  sample: {add: 0, change: 1, remove: 0, move: 0}
"""

import os
import re
import tempfile
from typing import Any

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.zorv.label.plugins.module_utils.document import (
    FIELDS,
    LATIN1,
    SECTIONS,
    document_text,
    places_of_lines,
    text_after,
)
from ansible_collections.zorv.label.plugins.module_utils.program import Answer, Program

DIFFERENT = 2


def section_spec(name: str) -> dict[str, Any]:
    names = [name, name + LATIN1]
    options: dict[str, Any] = {key: {"type": "raw"} for key in names}
    one_of = [names]
    if name == "package":
        options["id"] = {"type": "raw", "required": True}
    else:
        options.update((field, {"type": "raw"}) for field in FIELDS)
        one_of.append(list(FIELDS))
    return {
        "type": "list",
        "elements": "dict",
        "options": options,
        "mutually_exclusive": [names],
        "required_one_of": one_of,
    }


def make_module() -> AnsibleModule:
    spec = {section: section_spec(name) for section, name in SECTIONS.items()}
    spec.update(
        src={"type": "path"},
        keep_others={"type": "bool", "default": False},
        allow_missing={"type": "bool", "default": False},
    )
    return AnsibleModule(
        argument_spec=spec,
        mutually_exclusive=[["src", section] for section in SECTIONS],
        required_one_of=[["src"] + list(SECTIONS)],
        supports_check_mode=True,
    )


def wanted_sections(module: AnsibleModule) -> dict[str, list[dict[str, str]]]:
    """What the task lists, with the values that are there, all of them texts."""
    missing = [section for section in SECTIONS if module.params[section] is None]
    if missing and not module.params["keep_others"]:
        module.fail_json(
            msg=f"missing: {', '.join(missing)}. What is not listed is removed: write [] where "
            "nothing is to stay, or set keep_others"
        )
    sections = {}
    for section in SECTIONS:
        sections[section] = []
        for index, record in enumerate(module.params[section] or []):
            present = {key: value for key, value in record.items() if value is not None}
            for key, value in present.items():
                if not isinstance(value, str):
                    module.fail_json(
                        msg=f"{section}[{index}]: {key} is {value!r}, which is no text: quote it, "
                        "as it was written for the label manager"
                    )
            sections[section].append(present)
    return sections


def write_state_file(module: AnsibleModule, text: str) -> str:
    """Answers the path. The file is readable for root alone and goes with the module."""
    descriptor, path = tempfile.mkstemp(dir=module.tmpdir, prefix="state")
    module.add_cleanup_file(path)
    with os.fdopen(descriptor, "wb") as file:
        file.write(text.encode("utf-8", errors="surrogateescape"))
    return path


def name_places(message: str, path: str, places: dict[int, str]) -> str:
    """Lines of the written file mean nothing to the reader: names the parameters."""

    def place(match: re.Match) -> str:
        return places.get(int(match.group(1)), match.group(0))

    return re.sub(r"\bon line (\d+)", place, re.sub(re.escape(path) + r":(\d+)", place, message))


def apply(module: AnsibleModule, program: Program) -> Answer:
    path, places = module.params["src"], {}
    if path is None:
        sections = wanted_sections(module)
        path, places = write_state_file(module, document_text(sections)), places_of_lines(sections)
    flags = {
        "--check": module.check_mode,
        "--keep-others": module.params["keep_others"],
        "--allow-missing": module.params["allow_missing"],
    }
    words = [flag for flag, is_set in flags.items() if is_set]
    answer = program.run(["apply", "--json"] + words + ["--", path])
    if answer.status not in (0, DIFFERENT):
        program.fail(
            answer,
            msg=name_places(answer.message(), path, places),
            changed=bool(answer.records) and not module.check_mode,
            changes=answer.records,
        )
    return answer


def main() -> None:
    module = make_module()
    program = Program(module)
    needs_diff = module._diff  # pylint: disable=protected-access
    before = program.export() if needs_diff else ""
    answer = apply(module, program)
    program.warn(answer)
    result = {
        "changed": answer.status == DIFFERENT,
        "changes": answer.records,
        "summary": answer.sum,
    }
    if needs_diff:
        after = text_after(before, answer.records) if module.check_mode else program.export()
        result["diff"] = {"before": before, "after": after}
    module.exit_json(**result)


if __name__ == "__main__":
    main()
