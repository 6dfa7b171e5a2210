#!/usr/bin/python
"""Labels that are not what they should be, as facts."""

DOCUMENTATION = r"""
module: verify
short_description: Tells which labels are not what they should be
version_added: "1.0.0"
description:
  - Compares the labels of all files below directories with what users set and policy say, by
    C(zorv-label-state verify) on the host. Changes nothing.
  - To mend them, run C(zorv-label-state label) for the directories.
author: Zorv Label Tool Maintainers (!UNKNOWN)
options:
  roots:
    description: The directories.
    type: list
    elements: path
    required: true
  limit:
    description: How many records of a directory are kept. The summary counts them all.
    type: int
    default: 1000
attributes:
  check_mode:
    description: It never changes anything.
    support: full
  diff_mode:
    description: There is nothing to show.
    support: none
  facts:
    description: The records become facts.
    support: full
notes:
  - Runs as root, on hosts with the bundled label manager.
  - A directory with files whose labels cannot be read is a failure, which has the records that were found.
"""

EXAMPLES = r"""
- name: Look at what is served
  zorv.label.verify:
    roots: [/srv/www]
  register: labels

- name: Mend it
  ansible.builtin.command: zorv-label-state label --quiet /srv/www
  when: labels.drifted
  register: labelling
  changed_when: labelling.rc == 2
  failed_when: labelling.rc not in [0, 2]
"""

RETURN = r"""
drifted:
  description: Whether any label is not what it should be.
  returned: success
  type: bool
summary:
  description: How many labels below each directory are right, wrong, and could not be read.
  returned: always
  type: dict
  sample: {/srv/www: {right: 998, wrong: 2, failed: 0}}
ansible_facts:
  description: Facts about the host.
  returned: success
  type: dict
  contains:
    zorv_label_drift:
      description: Of each directory the files whose labels are wrong, with what they are and should be.
      type: dict
      returned: success
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.zorv.label.plugins.module_utils.program import Program


def main() -> None:
    module = AnsibleModule(
        argument_spec={
            "roots": {"type": "list", "elements": "path", "required": True},
            "limit": {"type": "int", "default": 1000},
        },
        supports_check_mode=True,
    )
    limit = module.params["limit"]
    if limit < 0:
        module.fail_json(msg=f"limit is {limit}, which is no number of records")
    program = Program(module)
    drift, summary = {}, {}
    for root in module.params["roots"]:
        answer = program.run(["verify", "--json", "--", root], limit)
        drift[root] = answer.records
        if answer.sum is not None:
            summary[root] = answer.sum
        if answer.status not in (0, 2):
            program.fail(answer, drift=drift, summary=summary)
        program.warn(answer)
    module.exit_json(
        changed=False,
        drifted=any(counts["wrong"] for counts in summary.values()),
        summary=summary,
        ansible_facts={"zorv_label_drift": drift},
    )


if __name__ == "__main__":
    main()
