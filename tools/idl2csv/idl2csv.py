# idl2csv: an omniidl back-end that writes the .csv interface descriptions
# the library reads, one file per IDL interface, under idl/ of the output
# directory (the current one, or omniidl's -C directory).
#
#   omniidl -p tools/idl2csv -b idl2csv [-C outdir] [-Wball] file.idl
#
# A description has no named types and no references between types, so every
# type is written out in full where it is used: typedefs are resolved, arrays
# and sequences nest their element type, structs, unions and exceptions list
# their members. Inherited operations are repeated in each derived interface,
# and attributes become their accessor operations (_get_x, and _set_x unless
# read-only), since the library finds only operations by name.
#
# What the format cannot hold (recursive types, value types, native and
# abstract types, local interfaces used as values, context clauses) stops the
# run with a message naming the IDL construct and where it is used; nothing is
# written then.

import os
import sys

from omniidl import idlast, idltype

usage_string = """\
  -Wball          Also describe the interfaces of #included files
  -Wbdir=NAME     Folder for the descriptions (default: idl)"""

# Keywords of the primitive kinds, by TCKind number.
PRIMITIVE_KEYWORDS = {
    idltype.tk_null: "null",
    idltype.tk_void: "void",
    idltype.tk_short: "short",
    idltype.tk_long: "long",
    idltype.tk_ushort: "ushort",
    idltype.tk_ulong: "ulong",
    idltype.tk_float: "float",
    idltype.tk_double: "double",
    idltype.tk_boolean: "boolean",
    idltype.tk_char: "char",
    idltype.tk_octet: "octet",
    idltype.tk_any: "any",
    idltype.tk_TypeCode: "TypeCode",
    idltype.tk_Principal: "Principal",
    idltype.tk_longlong: "longlong",
    idltype.tk_ulonglong: "ulonglong",
    idltype.tk_longdouble: "longdouble",
    idltype.tk_wchar: "wchar",
}

# Kinds that have no form in a description, with the words a message uses.
INEXPRESSIBLE = {
    idltype.tk_value: "value type",
    idltype.tk_value_box: "value box",
    idltype.tk_native: "native type",
    idltype.tk_abstract_interface: "abstract interface",
    idltype.tk_local_interface: "local interface",
}

# Type records nest once per level of the IDL type; the reader recurses as
# deep. Deeper than this is no real interface and would only strain readers.
MAX_NESTING = 64

# A token is read into a 255-byte buffer.
MAX_TOKEN = 255

# The library refuses arrays whose lengths multiply beyond this along one
# path of a type: each element becomes at least one script parameter.
MAX_ARRAY_ELEMENTS = 1 << 20


class GenError(Exception):
    """A construct that cannot be described; the text is the whole message."""


def scoped(decl):
    return "::".join(decl.scopedName())


def place(decl):
    return "%s:%d" % (decl.file(), decl.line())


def file_name_for(repo_id):
    """The description's file name for an interface's repository id: the
    text between the first and the last colon, with '/' written as '-'."""
    if not repo_id.startswith("IDL:"):
        return None
    first = repo_id.index(":")
    last = repo_id.rindex(":")
    stem = repo_id[first + 1 :] if first == last else repo_id[first + 1 : last]
    return stem.replace("/", "-") + ".csv"


def token(text, what, decl):
    """Checks that text can stand as one token."""
    if not text or len(text.encode()) > MAX_TOKEN or any(c in text for c in " \t\r\n\v\f,#"):
        raise GenError("%s: %s '%s' cannot be written as a single token" % (place(decl), what, text))
    return text


class TypeWriter:
    """Spells out one type as tokens, following typedefs and refusing what a
    description cannot hold. `where` names the use, for messages."""

    def __init__(self, where, decl):
        self.where = where
        self.decl = decl
        self.open = []  # structs and unions being written, to find recursion
        self.elements = 1  # product of the array lengths around the position

    def fail(self, what):
        raise GenError("%s: %s, used in %s, cannot be written in a .csv description" % (
            place(self.decl), what, self.where))

    def write(self, name, t, out, depth=0):
        if depth > MAX_NESTING:
            self.fail("a type nested more than %d levels deep" % MAX_NESTING)
        out.append(name)
        kind = t.kind()

        if kind in PRIMITIVE_KEYWORDS:
            out.append(PRIMITIVE_KEYWORDS[kind])
        elif kind == idltype.tk_string:
            out.append("string")  # bounds of strings are not recorded
        elif kind == idltype.tk_wstring:
            out.append("wstring")
        elif kind == idltype.tk_fixed:
            out.append("fixed")
        elif kind == idltype.tk_sequence:
            out += ["sequence", str(t.bound())]
            self.write(".", t.seqType(), out, depth + 1)
        elif kind in INEXPRESSIBLE:
            self.fail("%s %s" % (INEXPRESSIBLE[kind], "::".join(t.scopedName())))
        elif kind == idltype.tk_alias:
            self.alias(t.decl(), out, depth)
        elif kind == idltype.tk_objref:
            decl = t.decl()
            if decl is not None and hasattr(decl, "fullDecl"):
                decl = decl.fullDecl()
            if isinstance(decl, idlast.Interface) and decl.local():
                self.fail("local interface %s" % scoped(decl))
            out.append("objref")
        elif kind == idltype.tk_enum:
            out.append("enum")  # enumerators travel as their ordinal number
        elif kind in (idltype.tk_struct, idltype.tk_union,
                      idltype.ot_structforward, idltype.ot_unionforward):
            self.constructed(t.decl().fullDecl(), out, depth)
        else:
            self.fail("type %s" % idltype.kind_map.get(kind, str(kind)))

    def alias(self, declarator, out, depth):
        """A typedef: its array dimensions, then the type it names. write()
        has already put the name; arrays() puts it again where it belongs, in
        front of the outermost dimension or of the type itself."""
        name = out.pop()
        self.arrays(name, declarator.sizes(), declarator.alias().aliasType(), out, depth + 1)

    def constructed(self, decl, out, depth):
        label = "%s %s" % ("struct" if isinstance(decl, idlast.Struct) else "union", scoped(decl))
        if decl in self.open:
            self.fail("recursive type %s (declared at %s), which contains itself" % (label, place(decl)))
        self.open.append(decl)
        if isinstance(decl, idlast.Struct):
            members = [(d, m.memberType()) for m in decl.members() for d in m.declarators()]
            out += ["struct", str(len(members))]
            for d, mt in members:
                self.member(d, mt, out, depth + 1)
        else:
            out.append("union")
            # The reader renames the discriminator; "." keeps the file plain.
            self.write(".", decl.switchType(), out, depth + 1)
            cases = decl.cases()
            out.append(str(len(cases)))
            for c in cases:
                self.member(c.declarator(), c.caseType(), out, depth + 1)
        self.open.pop()

    def member(self, declarator, t, out, depth):
        name = token(declarator.identifier(), "member name", declarator)
        self.arrays(name, declarator.sizes(), t, out, depth)

    def arrays(self, name, sizes, t, out, depth):
        """Writes t behind array dimensions, the first dimension outermost."""
        outer = self.elements
        for size in sizes or []:
            self.elements *= size
            if self.elements > MAX_ARRAY_ELEMENTS:
                self.fail("an array of %d elements in all (more than %d)" % (self.elements, MAX_ARRAY_ELEMENTS))
            out += [name, "array", str(size)]
            name = "."
            depth += 1
        self.write(name, t, out, depth)
        self.elements = outer


class Describer:
    def __init__(self):
        self.lines = []

    def type_record(self, name, t, where, decl):
        out = []
        TypeWriter(where, decl).write(name, t, out)
        return " ".join(out)

    def operation(self, iface, op):
        where = "operation %s of interface %s" % (scoped(op), scoped(iface))
        if op.contexts():
            raise GenError("%s: the context clause of %s cannot be written in a .csv description"
                           % (place(op), where))
        mode = "oneway" if op.oneway() else "normal"
        lines = ["opr %s %s %s" % (token(op.repoId(), "repository id", op),
                                   token(op.identifier(), "operation name", op), mode)]
        lines.append("    res " + self.type_record(".", op.returnType(), where, op))
        for p in op.parameters():
            direction = ("in", "out", "inout")[p.direction()]
            pw = "parameter '%s' of %s" % (p.identifier(), where)
            lines.append("    par %s %s %s" % (direction, token(p.identifier(), "parameter name", p),
                                              self.type_record(".", p.paramType(), pw, p)))
        for e in op.raises():
            lines.append("    " + self.exception(e, where, op))
        return lines

    def exception(self, exc, where, op):
        members = [(d, m.memberType()) for m in exc.members() for d in m.declarators()]
        out = ["exc", token(exc.repoId(), "repository id", exc), str(len(members))]
        w = "exception %s raised by %s" % (scoped(exc), where)
        for d, mt in members:
            tw = TypeWriter(w, op)
            tw.member(d, mt, out, 1)
        return " ".join(out)

    def attribute(self, iface, att):
        lines = []
        for d in att.declarators():
            where = "attribute %s of interface %s" % (scoped(d), scoped(iface))
            name = token(d.identifier(), "attribute name", d)
            rid = token(d.repoId(), "repository id", d)
            mode = "readonly" if att.readonly() else "normal"
            typ = self.type_record(".", att.attrType(), where, att)
            lines.append("att %s %s %s %s" % (rid, name, mode, typ))
            lines.append("opr %s _get_%s normal" % (rid, name))
            lines.append("    res " + typ)
            if not att.readonly():
                lines.append("opr %s _set_%s normal" % (rid, name))
                lines.append("    res . void")
                lines.append("    par in %s %s" % (name, typ))
        return lines

    def interface(self, iface):
        lines = ["# %s, %s" % (scoped(iface), iface.repoId()),
                 "# written by idl2csv from %s; regenerate rather than edit" % os.path.basename(iface.file())]
        for c in iface.all_callables():
            lines += self.operation(iface, c) if isinstance(c, idlast.Operation) else self.attribute(iface, c)
        return "\n".join(lines) + "\n"


def interfaces(decls, all_files):
    for d in decls:
        if isinstance(d, idlast.Module):
            yield from interfaces(d.definitions(), all_files)
        elif isinstance(d, idlast.Interface) and (all_files or d.mainFile()):
            if not d.local() and not d.abstract():
                yield d


def run(tree, args):
    all_files = False
    folder = "idl"
    for a in args:
        if a == "all":
            all_files = True
        elif a.startswith("dir="):
            folder = a[4:]
        else:
            sys.stderr.write("idl2csv: unknown option -Wb%s\n" % a)
            sys.exit(2)

    files = {}
    try:
        for iface in interfaces(tree.declarations(), all_files):
            fname = file_name_for(iface.repoId())
            if fname is None:
                raise GenError("%s: interface %s has the repository id '%s', which does not begin "
                               "with IDL: and so names no description file"
                               % (place(iface), scoped(iface), iface.repoId()))
            if fname in files:
                raise GenError("%s: interface %s would overwrite %s, written for %s"
                               % (place(iface), scoped(iface), fname, files[fname][0]))
            files[fname] = (scoped(iface), Describer().interface(iface))
    except GenError as e:
        sys.stderr.write("idl2csv: error: %s\n" % e)
        sys.exit(1)

    if not files:
        sys.stderr.write("idl2csv: warning: %s declares no interface\n" % tree.file())
    os.makedirs(folder, exist_ok=True)
    for fname, (_, text) in sorted(files.items()):
        path = os.path.join(folder, fname)
        with open(path, "w", encoding="utf-8", newline="\n") as f:
            f.write(text)
