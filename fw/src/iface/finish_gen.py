#!/usr/bin/env python3
"""Completes what thrift generated: finish_gen.py FILE...

The present generator knows no fingerprints, declares operator< without
defining it, reserves `when` and `from`, and gives enums no underlying type,
so that a peer's unknown value would be undefined behaviour. Every rewrite is
checked, so that another generator version cannot pass unnoticed.
"""
import re
import sys

FINGERPRINTS = {
    "FwException": "07A9615F837F7D0A952B595DD3020972",
    "ObjectInfo": "C51899C8B404FE5A5C65D4B02F92FC98",
    "ParameterDesc": "91B2BF556E75A239540D52DB725071C1",
    "ActionDesc": "0E856F0CA5273D9CECB0A3F087BF12BC",
    "NestedAction": "B1021C32A35A2AEFCD2F57A5424159A7",
    "Action": "554B45C992C25172EAB215C724B44347",
    "ActionResponse": "5EA2D527ECA3BA20C77AFC023EE8C05F",
    "EventTS": "154BB42C2FFD70F8B3993568C50C5613",
    "Event": "63855B6220A62BC25EBF1C31592DB703",
}

# FILE ending -> members that get their reserved names back.
RENAMED = {"elog_types.h": ("when", "from"), "elog_types.cpp": ("when", "from")}

RECORD = re.compile(r"class (\w+) : public [^{]*TBase \{\n public:\n|"
                    r"class (\w+) : public ::apache::thrift::TException \{\n public:\n")


def fingerprints(name):
    digits = FINGERPRINTS[name]
    octets = ", ".join("0x" + digits[i:i + 2] for i in range(0, 32, 2))
    return (f'\n  static constexpr const char* ascii_fingerprint = "{digits}";\n'
            f"  static constexpr uint8_t binary_fingerprint[16] = {{{octets}}};\n")


def less_than(match):
    name, members = match[2], re.findall(r"\(!\((\w+) == rhs\.", match[1])
    if not members:
        raise SystemExit(f"finish_gen: no members found in {name}")
    mine, theirs = ", ".join(members), ", ".join("rhs." + m for m in members)
    return (f"{match[1]}  bool operator < (const {name} & rhs) const {{\n"
            f"    return std::tie({mine}) < std::tie({theirs});\n  }}\n")


def finish(path):
    with open(path, encoding="utf-8") as f:
        text = f.read()
    for ending, names in RENAMED.items():
        for name in names if path.endswith(ending) else ():
            text, count = re.subn(rf"\b(__set_)?{name}_\b", rf"\1{name}", text)
            if not count:
                raise SystemExit(f"finish_gen: {path} has no member {name}_")
    if path.endswith(".h"):
        declared = text.count("bool operator < (")
        text, defined = re.subn(r"(bool operator == \(const (\w+) &[^}]*?return true;\n  \}\n"
                                r"  bool operator != .*?\n  \}\n\n)"
                                r"  bool operator < \(const \w+ & \) const;\n",
                                less_than, text, flags=re.S)
        if declared != defined:
            raise SystemExit(f"finish_gen: {path}: {defined} of {declared} operator< defined")
        text = text.replace("#include <iosfwd>", "#include <iosfwd>\n#include <tuple>", 1)
    if path.endswith("_types.h"):
        text = text.replace("  enum type {", "  enum type : int32_t {")
        if len(re.findall(r"\benum\b", text)) != text.count("enum type : int32_t {"):
            raise SystemExit(f"finish_gen: an enum of unknown form in {path}")
        records = [m[1] or m[2] for m in RECORD.finditer(text)]
        missing = set(records) - set(FINGERPRINTS)
        if missing:
            raise SystemExit(f"finish_gen: no fingerprint for {missing} in {path}")
        text = RECORD.sub(lambda m: m[0] + fingerprints(m[1] or m[2]), text)
        constants = re.search(r"(\w+)_types\.h$", path)[1]
        text = text.replace("} // namespace\n",
                            f"// No constants are defined.\nclass {constants}Constants {{}};\n\n"
                            "} // namespace\n", 1)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)


for argument in sys.argv[1:]:
    finish(argument)
