# depot.idl as Combat's type repository holds it: the form that Combat's
# IDL compiler writes, kept by hand since that compiler needs a separate
# interface repository program.
package require combat

proc depot_echo {name type} {
    return [list operation [list IDL:Depot/Store/$name:1.0 $name 1.0] $type \
        [list [list in a $type] [list out b $type] [list inout c $type]] {}]
}

combat::ir add [list [list module {IDL:Depot:1.0 Depot 1.0} [list \
    {enum {IDL:Depot/Grade:1.0 Grade 1.0} {low middle high}} \
    [list interface {IDL:Depot/Item:1.0 Item 1.0} {} [list \
        {operation {IDL:Depot/Item/label:1.0 label 1.0} string {} {}} \
        {operation {IDL:Depot/Item/count:1.0 count 1.0} long {} {}}]] \
    [list interface {IDL:Depot/Store:1.0 Store 1.0} {} [list \
        {exception {IDL:Depot/Store/OutOfStock:1.0 OutOfStock 1.0}
            {{label string} {wanted {unsigned long}}} {}} \
        [depot_echo echo_short short] \
        [depot_echo echo_long long] \
        [depot_echo echo_ushort {unsigned short}] \
        [depot_echo echo_ulong {unsigned long}] \
        [depot_echo echo_float float] \
        [depot_echo echo_double double] \
        [depot_echo echo_boolean boolean] \
        [depot_echo echo_char char] \
        [depot_echo echo_octet octet] \
        [depot_echo echo_string string] \
        [depot_echo echo_grade IDL:Depot/Grade:1.0] \
        [depot_echo echo_item IDL:Depot/Item:1.0] \
        {operation {IDL:Depot/Store/find:1.0 find 1.0} IDL:Depot/Item:1.0
            {{in label string}} {IDL:Depot/Store/OutOfStock:1.0}}]]]]]
