// Sequences of plain numbers and bytes: their memory form is the wire form
// (in the machine's order), so they are moved in one copy instead of one
// visitor call per element. The bytes on the wire are the same.
#ifndef ORBELLE_PRIMITIVE_RUNS_H
#define ORBELLE_PRIMITIVE_RUNS_H

#include "data/typecode.h"

// The wire width of the elements of sequence type seq when they form such a
// run (1, 2, 4 or 8), else 0.
uint32_t primitive_run_width(const TypeCode *seq);

// -1 when the elements don't form a run (nothing done); else 1 on success
// or 0 when the stream failed. The count has been written or read already;
// get fills r.buffer, which holds r.length elements.
int put_primitive_run(TypeCode *seq, const SequenceRecord &r, CDR &s, Environment &env);
int get_primitive_run(TypeCode *seq, const SequenceRecord &r, CDR &s, Environment &env);

#endif
