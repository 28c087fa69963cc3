# A client on Combat, the ORB in Tcl, for the recorder's test: finds an
# item in the depot, reads it, sends values both ways and meets the store's
# user exception.
#
#   tclsh depot_client.tcl STORE_IOR
package require combat

corba::init
source [file join [file dirname [info script]] .. combat depot_ir.tcl]
set store [corba::string_to_object [lindex $argv 0]]
set item [$store find bolts]
puts "[$item label] [$item count]"
set c 7
puts [$store echo_long 5 b c]
set c "old text"
puts [$store echo_string "new text" b c]
set c 2.5
puts [$store echo_double 1.25 b c]
if {![catch {$store find screws}]} {
    puts stderr "find screws should raise OutOfStock"
    exit 1
}
exit 0
