#!/usr/bin/env python3
"""Tests of the idl2csv back-end: what it writes for each IDL construct, what
it refuses, and that demo/idl is what it makes of demo/bank.idl today."""

import filecmp
import os
import subprocess
import sys
import tempfile
import textwrap
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.environ.get("ORBELLE_SOURCE_DIR", os.path.dirname(os.path.dirname(HERE)))
OMNIIDL = os.environ.get("OMNIIDL", "omniidl")


def generate(idl_text, folder, *extra):
    """Runs the back-end on idl_text in folder; returns (exit code, stderr)."""
    path = os.path.join(folder, "t.idl")
    with open(path, "w") as f:
        f.write(textwrap.dedent(idl_text))
    run = subprocess.run([OMNIIDL, "-p", HERE, "-b", "idl2csv", *extra, "t.idl"],
                         cwd=folder, capture_output=True, text=True, timeout=60)
    return run.returncode, run.stderr


def records(path):
    """The lines of a description without comments and indentation."""
    with open(path) as f:
        return [l.strip() for l in f if l.strip() and not l.startswith("#")]


class Descriptions(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.folder = self.dir.name

    def tearDown(self):
        self.dir.cleanup()

    def test_types_are_spelled_out_inline_with_typedefs_resolved(self):
        rc, err = generate("""
            module M {
              typedef long Grid[2][3];
              typedef sequence<octet, 8> Key;
              enum Colour { RED, GREEN };
              struct Point { short x; Grid g; char tag[4]; };
              typedef Point Alias;
              typedef fixed<5,2> Amount;
              typedef string<10> Code;
              typedef sequence<sequence<Alias> > Rows;
              union Pick switch (long) { case 1: Key k; case 2: case 3: Colour c; default: wstring w; };
              interface Shapes {
                Rows f(in Alias p, out Key k, inout Pick u, in Object o, in any a,
                       in unsigned long long big, in Amount price, in Code s);
              };
            };""", self.folder)
        self.assertEqual(rc, 0, err)
        lines = records(os.path.join(self.folder, "idl", "M-Shapes.csv"))
        point = "struct 3 x short g array 2 . array 3 . long tag array 4 . char"
        self.assertEqual(lines, [
            "opr IDL:M/Shapes/f:1.0 f normal",
            "res . sequence 0 . sequence 0 . " + point,
            "par in p . " + point,
            "par out k . sequence 8 . octet",
            "par inout u . union . long 3 k sequence 8 . octet c enum w wstring",
            "par in o . objref",
            "par in a . any",
            "par in big . ulonglong",
            "par in price . fixed",
            "par in s . string",
        ])

    def test_inherited_operations_attributes_oneway_and_exceptions(self):
        rc, err = generate("""
            #pragma prefix "example.com"
            module Shop {
              exception SoldOut { string item; unsigned short left; };
              interface Base { readonly attribute long count; void ping(); };
              interface Till : Base {
                attribute double total;
                oneway void log(in string text);
                long pay(in long cents) raises (SoldOut);
              };
            };""", self.folder)
        self.assertEqual(rc, 0, err)
        idl = os.path.join(self.folder, "idl")
        self.assertEqual(sorted(os.listdir(idl)), ["example.com-Shop-Base.csv", "example.com-Shop-Till.csv"])
        till = records(os.path.join(idl, "example.com-Shop-Till.csv"))
        self.assertEqual(till, [
            "att IDL:example.com/Shop/Base/count:1.0 count readonly . long",
            "opr IDL:example.com/Shop/Base/count:1.0 _get_count normal",
            "res . long",
            "opr IDL:example.com/Shop/Base/ping:1.0 ping normal",
            "res . void",
            "att IDL:example.com/Shop/Till/total:1.0 total normal . double",
            "opr IDL:example.com/Shop/Till/total:1.0 _get_total normal",
            "res . double",
            "opr IDL:example.com/Shop/Till/total:1.0 _set_total normal",
            "res . void",
            "par in total . double",
            "opr IDL:example.com/Shop/Till/log:1.0 log oneway",
            "res . void",
            "par in text . string",
            "opr IDL:example.com/Shop/Till/pay:1.0 pay normal",
            "res . long",
            "par in cents . long",
            "exc IDL:example.com/Shop/SoldOut:1.0 2 item string left ushort",
        ])
        # The base's own file holds only its own operations; no _set_ for
        # a read-only attribute.
        base = records(os.path.join(idl, "example.com-Shop-Base.csv"))
        self.assertEqual([l for l in base if l.startswith("opr")],
                         ["opr IDL:example.com/Shop/Base/count:1.0 _get_count normal",
                          "opr IDL:example.com/Shop/Base/ping:1.0 ping normal"])

    def test_file_names_follow_the_repository_id(self):
        rc, err = generate("""
            module A { module B {
              interface C { void f(); };
              #pragma version C 2.5
              interface D { void f(); };
              #pragma ID D "IDL:other/Name:3.0"
            }; };""", self.folder)
        self.assertEqual(rc, 0, err)
        self.assertEqual(sorted(os.listdir(os.path.join(self.folder, "idl"))), ["A-B-C.csv", "other-Name.csv"])
        # Another folder on request; an unknown option is refused.
        rc, err = generate("module A { interface C { void f(); }; };", self.folder, "-Wbdir=out")
        self.assertEqual((rc, os.listdir(os.path.join(self.folder, "out"))), (0, ["A-C.csv"]))
        rc, err = generate("module A { interface C { void f(); }; };", self.folder, "-Wbfast")
        self.assertEqual(rc, 2)
        self.assertIn("unknown option -Wbfast", err)

    def test_inexpressible_constructs_stop_with_a_message_and_write_nothing(self):
        cases = {
            "recursive struct": ("""
                module M {
                  struct Node; typedef sequence<Node> Nodes;
                  struct Node { string name; Nodes children; };
                  interface Tree { Node root(); };
                };""", "recursive type struct M::Node"),
            "recursive union": ("""
                module M {
                  union U; typedef sequence<U> Us;
                  union U switch (long) { case 1: Us kids; case 2: long leaf; };
                  interface T { void f(in U a); };
                };""", "recursive type union M::U"),
            "value type": ("""
                module M {
                  valuetype Cheque { public long amount; };
                  interface Teller { void cash(in Cheque c); };
                };""", "value type M::Cheque, used in parameter 'c' of operation M::Teller::cash"),
            "value box in a struct": ("""
                module M {
                  valuetype Label string;
                  struct S { Label l; };
                  interface T { S get(); };
                };""", "value box M::Label"),
            "abstract interface": ("""
                module M {
                  abstract interface Shape { double area(); };
                  interface T { void draw(in Shape s); };
                };""", "abstract interface M::Shape"),
            "context clause": ("""
                module M {
                  interface T { void g(); };
                  interface U : T { void h(out long x) context("user"); };
                };""", "context clause of operation M::U::h"),
            "huge array": ("""
                module M {
                  typedef long Row[1024];
                  struct Page { Row rows[2048]; };
                  interface T { void f(in Page p); };
                };""", "an array of 2097152 elements in all (more than 1048576), used in parameter 'p'"),
            "id without IDL: prefix": ("""
                module M {
                  interface T { void f(); };
                  #pragma ID T "LOCAL:t"
                };""",
                "interface M::T has the repository id 'LOCAL:t'"),
        }
        for name, (idl, message) in cases.items():
            with self.subTest(name), tempfile.TemporaryDirectory() as folder:
                rc, err = generate(idl, folder)
                self.assertEqual(rc, 1, name)
                self.assertIn("idl2csv: error: t.idl:", err)
                self.assertIn(message, err)
                self.assertFalse(os.path.exists(os.path.join(folder, "idl")), name)

    def test_demo_descriptions_are_up_to_date(self):
        demo = os.path.join(SOURCE, "demo")
        run = subprocess.run([OMNIIDL, "-p", HERE, "-b", "idl2csv", "-C", self.folder,
                              os.path.join(demo, "bank.idl")], capture_output=True, text=True, timeout=60)
        self.assertEqual(run.returncode, 0, run.stderr)
        fresh = os.path.join(self.folder, "idl")
        committed = os.path.join(demo, "idl")
        self.assertEqual(sorted(os.listdir(fresh)), sorted(os.listdir(committed)))
        match, mismatch, errors = filecmp.cmpfiles(fresh, committed, os.listdir(fresh), shallow=False)
        self.assertEqual((mismatch, errors), ([], []),
                         "demo/idl is stale: run omniidl -p tools/idl2csv -b idl2csv -C demo demo/bank.idl")


if __name__ == "__main__":
    unittest.main(verbosity=2)
