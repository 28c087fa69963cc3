# The Depot server on Combat, a CORBA ORB written in Tcl: a second ORB,
# independent of omniORB, whose references carry IIOP 1.2 profiles.
#
#   tclsh depot_server.tcl PORT
#
# Listens on 127.0.0.1:PORT, prints "NAME IOR:..." for the store and each
# item, then "depot_server: ready", and serves until it is killed.

package require combat

# Combat listens on every interface; a test peer listens on loopback only.
itcl::body ::Combat::IIOP::TCPServer::listen {{myport 0}} {
    set sock [socket -server Combat::IIOP::TCPServer::accept -myaddr 127.0.0.1 $myport]
    set host $::Combat::CORBA::ORB::hostname
    set port [lindex [fconfigure $sock -sockname] 2]
}

itcl::class Item_impl {
    inherit PortableServer::ServantBase
    private variable label
    private variable count
    constructor {l c} {
        set label $l
        set count $c
    }
    public method _Interface {} { return "::Depot::Item" }
    public method label {} { return $label }
    public method count {} { return $count }
}

itcl::class Store_impl {
    inherit PortableServer::ServantBase
    private variable items
    constructor {item_poa} { set items $item_poa }
    public method _Interface {} { return "::Depot::Store" }

    # result = a, b = the old c, c = a. The ORB releases each reference it
    # sends, so a reference sent twice is duplicated.
    private method echo {a bname cname {object 0}} {
        upvar 2 $bname b $cname c
        set b $c
        if {$object} {
            set c [corba::duplicate $a]
            return [corba::duplicate $a]
        }
        set c $a
        return $a
    }
    public method echo_short {a b c} { echo $a $b $c }
    public method echo_long {a b c} { echo $a $b $c }
    public method echo_ushort {a b c} { echo $a $b $c }
    public method echo_ulong {a b c} { echo $a $b $c }
    public method echo_float {a b c} { echo $a $b $c }
    public method echo_double {a b c} { echo $a $b $c }
    public method echo_boolean {a b c} { echo $a $b $c }
    public method echo_char {a b c} { echo $a $b $c }
    public method echo_octet {a b c} { echo $a $b $c }
    public method echo_string {a b c} { echo $a $b $c }
    public method echo_grade {a b c} { echo $a $b $c }
    public method echo_item {a b c} { echo $a $b $c 1 }

    public method find {label} {
        if {[catch {$items id_to_reference $label} ref]} {
            corba::throw [list IDL:Depot/Store/OutOfStock:1.0 [list label $label wanted 1]]
        }
        return $ref
    }
}

if {[llength $argv] != 1} {
    puts stderr "usage: tclsh depot_server.tcl PORT"
    exit 2
}
fconfigure stdout -buffering line
corba::init -ORBHostName 127.0.0.1 -ORBServerPort [lindex $argv 0]
source [file join [file dirname [info script]] depot_ir.tcl]

set root [corba::resolve_initial_references RootPOA]
set manager [$root the_POAManager]
set item_poa [$root create_POA Items $manager {RETAIN USER_ID}]
foreach {label count} {bolts 40 nuts 12} {
    $item_poa activate_object_with_id $label [Item_impl #auto $label $count]
    puts "Item/$label [corba::object_to_string [$item_poa id_to_reference $label]]"
}
# The store under an id of its own, so that its reference is the same after
# a restart, as a server that publishes its references keeps them.
set store_poa [$root create_POA Store $manager {PERSISTENT RETAIN USER_ID}]
$store_poa activate_object_with_id depot [Store_impl #auto $item_poa]
puts "Store [corba::object_to_string [$store_poa id_to_reference depot]]"
$manager activate
puts "depot_server: ready"
vwait forever
