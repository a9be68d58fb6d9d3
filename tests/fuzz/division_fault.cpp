// Takes the place of src/common/division.cpp: an object file of the program comes before a member
// of an archive.
#include "fuzz/division_fault.h"

#include "common/division.h"

void RaiseDivisionFault() { throw fuzz::DivisionFault{}; }
