#!/usr/bin/env python3
"""Makes the records and the client stub of a SOAP service from its WSDL.

usage: wsdl2adb.py SERVICE.wsdl OUTPUT_FOLDER

Writes adb_SERVICE.h and .c (the records of the schema) and axis2_stub_SERVICE.h and .c (the
operations) over adb_runtime.h. Understands what device services use: document/literal messages of
one element, sequences of elements, restrictions of a simple type. Anything else ends with an error
that names it.
"""
import os
import sys
import xml.etree.ElementTree as ET

WSDL = "{http://schemas.xmlsoap.org/wsdl/}"
SOAP = "{http://schemas.xmlsoap.org/wsdl/soap/}"
XSD = "{http://www.w3.org/2001/XMLSchema}"

# XSD type: kind, type that is got, type that is set, member of adb_value_t
SIMPLE = {
    "int": ("ADB_INT", "int", "int", "i"),
    "unsignedInt": ("ADB_UNSIGNED", "unsigned int", "unsigned int", "u"),
    "boolean": ("ADB_BOOL", "axis2_bool_t", "axis2_bool_t", "i"),
    "float": ("ADB_FLOAT", "float", "float", "f"),
    "double": ("ADB_DOUBLE", "double", "double", "d"),
    "string": ("ADB_STRING", "axis2_char_t*", "const axis2_char_t*", "p"),
    "anyURI": ("ADB_URI", "axutil_uri_t*", "axutil_uri_t*", "p"),
}


class Field:
    """One element of a sequence, or the text of a simple type."""

    def __init__(self, name, type_name, occurs):
        self.name, self.occurs, self.record = name, occurs, None
        if type_name in SIMPLE:
            self.kind, self.item, self.item_set, self.member = SIMPLE[type_name]
        else:
            self.record = type_name
            self.kind, self.member = "ADB_RECORD", "p"
            self.item = self.item_set = f"adb_{type_name}_t*"
        self.got, self.set = self.item, self.item_set
        if occurs == "ADB_LIST":
            if self.member != "p":
                sys.exit(f"list {name}: items of type {type_name} are not supported")
            self.got = self.set = "axutil_array_list_t*"

    def table_row(self):
        record = f"&adb_type_{self.record}" if self.record else "0"
        return f'{{"{self.name}", {self.kind}, {self.occurs}, {record}}}'


class Record:
    def __init__(self, name, form, fields):
        self.name, self.form, self.fields = name, form, fields

    def signature(self):
        arguments = "".join(f", {f.set} _{f.name}" for f in self.fields)
        return (f"adb_{self.name}_t* AXIS2_CALL "
                f"adb_{self.name}_create_with_values(const axutil_env_t* env{arguments})")

    def declarations(self):
        yield f"ADB_DECLARE_RECORD({self.name})"
        yield self.signature() + ";"
        for n, f in enumerate(self.fields, 1):
            yield f"ADB_DECLARE_FIELD({self.name}, {n}, {f.name}, {f.got}, {f.set})"
            if f.occurs == "ADB_LIST":
                yield f"ADB_DECLARE_LIST({self.name}, {f.name}, {f.item}, {f.item_set})"

    def definitions(self, namespace):
        fields = "0"
        if self.fields:
            fields = f"fields_{self.name}"
            rows = ",\n    ".join(f.table_row() for f in self.fields)
            yield f"static const adb_field_t {fields}[] = {{\n    {rows}}};"
        yield (f'const adb_type_t adb_type_{self.name} = {{"{self.name}", "{namespace}", '
               f"{self.form}, {fields}, {len(self.fields)}}};")
        yield f"ADB_DEFINE_RECORD({self.name})"
        yield self.signature() + " {"
        if self.fields:
            yield f"  adb_value_t values[{len(self.fields)}] = {{{{0}}}};"
            for i, f in enumerate(self.fields):
                cast = "(void*)" if f.member == "p" else ""
                yield f"  values[{i}].{f.member} = {cast}_{f.name};"
        values = "values" if self.fields else "0"
        yield (f"  return (adb_{self.name}_t*)adb_create_with_values(&adb_type_{self.name}, env, "
               f"{values});")
        yield "}"
        for n, f in enumerate(self.fields, 1):
            yield f"ADB_DEFINE_FIELD({self.name}, {n}, {f.name}, {f.got}, {f.set}, {f.member})"
            if f.occurs == "ADB_LIST":
                yield f"ADB_DEFINE_LIST({self.name}, {n}, {f.name}, {f.item}, {f.item_set})"


def local(name):
    return name.rpartition(":")[2]


def read_occurs(element):
    if element.get("maxOccurs", "1") != "1":
        return "ADB_LIST"
    return "ADB_OPTIONAL" if element.get("minOccurs") == "0" else "ADB_REQUIRED"


def read_field(element, records):
    name = element.get("name")
    type_name = local(element.get("type", ""))
    if not type_name:
        # A type of the element's own. The records of such types are named after the element.
        restriction = element.find(f"{XSD}simpleType/{XSD}restriction")
        if restriction is None:
            sys.exit(f"element {name}: only restrictions of a simple type can stand in an element")
        type_name = f"{name}_type0"
        text = Field(type_name, local(restriction.get("base")), "ADB_REQUIRED")
        records.append(Record(type_name, "ADB_TEXT", [text]))
    return Field(name, type_name, read_occurs(element))


def read_record(name, form, complex_type, records):
    fields = []
    for part in complex_type:
        if part.tag != f"{XSD}sequence":
            sys.exit(f"{name}: {part.tag} is not supported")
        for element in part:
            if element.tag != f"{XSD}element":
                sys.exit(f"{name}: {element.tag} is not supported")
            fields.append(read_field(element, records))
    records.append(Record(name, form, fields))


def read_records(schema):
    records = []
    for part in schema:
        if part.tag == f"{XSD}complexType":
            read_record(part.get("name"), "ADB_TYPE", part, records)
        elif part.tag == f"{XSD}element":
            read_record(part.get("name"), "ADB_ELEMENT", part.find(f"{XSD}complexType"), records)
        else:
            sys.exit(f"schema: {part.tag} is not supported")
    known = {record.name for record in records}
    for record in records:
        for field in record.fields:
            if field.record and field.record not in known:
                sys.exit(f"{record.name}.{field.name}: unknown type {field.record}")
    return records


class Service:
    def __init__(self, path):
        root = ET.parse(path).getroot()
        self.source = os.path.basename(path)
        self.namespace = root.get("targetNamespace")
        service = root.find(f"{WSDL}service")
        self.name = service.get("name")
        self.address = service.find(f"{WSDL}port/{SOAP}address").get("location")
        self.records = read_records(root.find(f"{WSDL}types/{XSD}schema"))
        self.operations = [
            (op.get("name"), op.find(f"{SOAP}operation").get("soapAction"))
            for op in root.find(f"{WSDL}binding").findall(f"{WSDL}operation")
        ]

    def header(self, guard, include, lines):
        return [f"/* Made from {self.source}: change that. */", f"#ifndef {guard}",
                f"#define {guard}", f"#include {include}", "#ifdef __cplusplus", 'extern "C" {',
                "#endif", *lines, "#ifdef __cplusplus", "}", "#endif", "#endif"]

    def records_header(self):
        types = [f"typedef struct adb_{r.name} adb_{r.name}_t;" for r in self.records]
        lines = [line for r in self.records for line in r.declarations()]
        return self.header(f"ADB_{self.name}_H", '"adb_runtime.h"', types + lines)

    def records_source(self):
        yield f'#include "adb_{self.name}.h"'
        for record in self.records:
            yield from record.definitions(self.namespace)

    def stub_header(self):
        lines = [
            f"axis2_stub_t* AXIS2_CALL axis2_stub_create_{self.name}(const axutil_env_t* env, "
            "const axis2_char_t* client_home, const axis2_char_t* endpoint_uri);",
            f"void AXIS2_CALL axis2_stub_populate_services_for_{self.name}(axis2_stub_t* stub, "
            "const axutil_env_t* env);",
        ]
        lines += [f"ADB_DECLARE_OPERATION({self.name}, {name})" for name, _ in self.operations]
        return self.header(f"AXIS2_STUB_{self.name}_H", f'"adb_{self.name}.h"', lines)

    def stub_source(self):
        rows = ",\n    ".join(
            f'{{"{name}", "{action}", &adb_type_{name}, &adb_type_{name}Response}}'
            for name, action in self.operations)
        yield f'#include "axis2_stub_{self.name}.h"'
        yield f"static const adb_operation_t operations[] = {{\n    {rows}}};"
        yield (f'static const adb_service_t service = {{"{self.name}", "{self.namespace}", '
               f'"{self.address}", operations, {len(self.operations)}}};')
        yield (f"axis2_stub_t* AXIS2_CALL axis2_stub_create_{self.name}(const axutil_env_t* env, "
               "const axis2_char_t* client_home, const axis2_char_t* endpoint_uri) {\n"
               "  return adb_stub_create(&service, env, client_home, endpoint_uri);\n}")
        yield (f"void AXIS2_CALL axis2_stub_populate_services_for_{self.name}(axis2_stub_t* stub, "
               "const axutil_env_t* env) {\n  adb_stub_populate(&service, stub, env);\n}")
        for at, (name, _) in enumerate(self.operations):
            yield f"ADB_DEFINE_OPERATION({self.name}, {name}, {at})"


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    service = Service(sys.argv[1])
    files = {
        f"adb_{service.name}.h": service.records_header(),
        f"adb_{service.name}.c": service.records_source(),
        f"axis2_stub_{service.name}.h": service.stub_header(),
        f"axis2_stub_{service.name}.c": service.stub_source(),
    }
    os.makedirs(sys.argv[2], exist_ok=True)
    for name, lines in files.items():
        with open(os.path.join(sys.argv[2], name), "w", encoding="utf-8") as file:
            file.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
