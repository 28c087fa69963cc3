// Queries on the repository: load the interface of a repository id, find an
// operation, step through its result and parameters, release the tree. No
// state is kept between calls and nothing is cached: every PirGetInterface
// reads and parses the file anew.
#ifndef ORBELLE_PIRAPI_H
#define ORBELLE_PIRAPI_H

#include <string>

#include "repository/pirnod.h"

// Loads scrDir/idl/<stem>.csv, the stem being the repository id between its
// first and last colon (all of the rest when there is one colon) with each
// "/" made "-". The tree belongs to the caller until PirFreeInterface.
// Throws PirException: "invalid repId" unless the id starts with "IDL:", and
// whatever reading and parsing the file raise.
PirIntNod *PirGetInterface(const char *scrDir, const char *repId);

// Reads and parses one description file; the tree belongs to the caller.
// Throws "can't open .csv file", ".csv is empty" or "invalid csv record".
PirIntNod *PirReadInterfaceFile(const char *filNam);

// The path PirGetInterface reads for repId; throws "invalid repId".
std::string PirInterfacePath(const char *scrDir, const char *repId);

void PirFreeInterface(PirIntNod *ifc);

// The first operation named oprNam, exactly; throws "operation not found".
PirOprNod *PirGetOperation(PirIntNod *ifc, const char *oprNam);
// The operation's first result; throws "result not found".
PirResNod *PirGetResult(PirOprNod *opr);
// Parameters in file order, skipping results and exceptions; null at the end.
PirParNod *PirGetFirstParameter(PirOprNod *opr);
PirParNod *PirGetNextParameter(PirParNod *par);
// The type below a result or parameter, or null if it has none.
PirTypNod *PirGetResultType(PirResNod *res);
PirTypNod *PirGetParameterType(PirParNod *par);

#endif
