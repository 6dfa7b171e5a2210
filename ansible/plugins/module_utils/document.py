"""The state file: from a task's parameters, and as it will be after changes."""

from __future__ import annotations

import json
from typing import Any

SECTIONS = {"paths": "path", "patterns": "pattern", "packages": "package"}
FIELDS = ("oid", "sid", "tid", "inherit_flag")
LATIN1 = "_latin1"

Record = dict[str, Any]
# Section, bytes of the name, field.
Key = tuple[str, bytes, str]


def document_text(sections: dict[str, list[Record]]) -> str:
    """As the program exports it: one record a line."""
    text = '{\n"format": "zorv-label-state",\n"version": 1'
    for section in SECTIONS:
        records = [
            json.dumps(record, separators=(",", ":"), ensure_ascii=False)
            for record in sections[section]
        ]
        text += f',\n"{section}": [' + ",".join("\n" + record for record in records)
        text += "\n]" if records else "]"
    return text + "\n}\n"


def places_of_lines(sections: dict[str, list[Record]]) -> dict[int, str]:
    """Which parameter stands on which line of the text."""
    places = {}
    line = 4
    for section in SECTIONS:
        for index in range(len(sections[section])):
            places[line + index + 1] = f"{section}[{index}]"
        line += len(sections[section]) + (2 if sections[section] else 1)
    return places


def text_after(before: str, changes: list[Record]) -> str:
    """The export that follows from an export and the changes that the program would make.
    To set a pattern makes it the last one of its field."""
    values = _values_of(json.loads(before))
    for change in changes:
        section, key_name = next(pair for pair in SECTIONS.items() if _name_key(change, pair[1]))
        key = (section, _name_bytes(change, key_name), change["field"])
        values.pop(key, None)
        if change["action"] != "remove":
            values[key] = change["value"]
    return document_text(_sections_of(values))


def _name_key(record: Record, name: str) -> str | None:
    return next((key for key in (name, name + LATIN1) if key in record), None)


def _name_bytes(record: Record, name: str) -> bytes:
    key = _name_key(record, name)
    return record[key].encode("latin-1" if key.endswith(LATIN1) else "utf-8")


def _named(name: str, text: bytes) -> Record:
    try:
        return {name: text.decode("utf-8")}
    except UnicodeDecodeError:
        return {name + LATIN1: text.decode("latin-1")}


def _values_of(document: Record) -> dict[Key, str]:
    values = {}
    for section, name in SECTIONS.items():
        for record in document[section]:
            for field in FIELDS + ("id",):
                if field in record:
                    values[section, _name_bytes(record, name), field] = record[field]
    return values


def _sections_of(values: dict[Key, str]) -> dict[str, list[Record]]:
    sections: dict[str, list[Record]] = {section: [] for section in SECTIONS}
    paths: dict[bytes, Record] = {}
    order = FIELDS + ("id",)
    in_order = sorted(values.items(), key=lambda item: order.index(item[0][2]))
    for (section, text, field), value in in_order:
        record = _named(SECTIONS[section], text)
        if section == "paths":
            record = paths.setdefault(text, record)
        else:
            sections[section].append(record)
        record[field] = value
    sections["paths"] = [paths[text] for text in sorted(paths)]
    sections["packages"].sort(key=lambda record: _name_bytes(record, "package"))
    return sections
