// Takes the place of src/model/division.cpp: an object file of the program comes before a member
// of an archive.
#include "fuzz/division_fault.h"

#include "model/division.h"

void vorn::run::RaiseDivisionFault() { throw fuzz::DivisionFault{}; }
