// The scripted runtime: a `libvorn.so` for tests. It computes nothing. It plays the model that a
// script describes, answers as the script says, and keeps a record of what it was asked. A program
// under test meets it through LD_LIBRARY_PATH and two environment variables, read at the first
// call:
//
//   VORN_SCRIPT   the script, see scripted/script.h
//   VORN_RECORD   the file that the record is appended to
//
// The record has one line for each call, in order, written before the call returns:
//
//   vorn_rt_malloc(16, 2) = 0 block#1        arguments in order without the places for results, the
//                                            answer, then what was handed out
//   vorn_mdl_create_desc() = null [scripted] an answer that the script ordered
//   vorn_mdl_execute(1, dataset#2, dataset#1) = 0
//   saw input 0: buffer=16 block=32 hex=00…  what the script wants to see, behind the execution
//   note: …                                  the script could not be followed here
//   violation: …                             the caller broke a rule of vorn.h
//   live: blocks=0 buffers=0 datasets=0 descs=0 contexts=0 streams=0 models=0 at=finalize
//                                            what is not yet released, after each vorn_finalize and
//                                            (at=exit) when the process ends by itself
//
// Handles, blocks and models are counted from 1 as they are made: block#1, dataset#2. Texts stand
// in quotes, with everything outside printable ASCII as \xHH. Nothing in it depends on addresses or
// time.
//
// Violations are: a handle that is null, foreign, released or of another kind; a block that is
// null, foreign or released where a live one has to be; a second release; writing outside a block
// (noticed when it is released or at the end); releasing a model's image under it; a data buffer
// larger than its block; an operation before vorn_init or without a context current on its thread;
// executing with another number of buffers than the model has; a null place for a result.
// Releasing the null block is not one.
#ifndef VORN_TESTS_SCRIPTED_SCRIPTED_H_
#define VORN_TESTS_SCRIPTED_SCRIPTED_H_

#include "vorn/vorn.h"

extern "C" {

/// For tests that use the library in their own process: ends the present life as if the process had
/// ended, and begins a new one, which reads the environment again at the next call. Handles and
/// blocks of the old life are gone.
VORN_API void vorn_scripted_restart(void);
}

#endif  // VORN_TESTS_SCRIPTED_SCRIPTED_H_
