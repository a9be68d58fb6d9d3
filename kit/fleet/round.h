// A round: chunks that are to do, handed out to the slots of the boards by GNU parallel.
//
// parallel runs on this machine alone and starts a ticket a chunk and some a slot, two a slot at a
// time; a ticket takes the first chunk that nobody has taken and that its board has not failed.
// While one of the two runs its chunk the other brings the files of the next one there and waits
// for its turn, as long as there are chunks enough for all slots; of the last ones a slot takes
// one when it is free, and gives back what it has waiting to one that has nothing to do.
// What the tickets of a round have to know of each other lies in FLEET/round:
//
//     boards.json     the boards, their paths made absolute
//     chunks.txt      a line a chunk
//     shift           nanoseconds that journals are shifted by: see Journal
//     claims/C        chunk C was taken
//     boards/NAME.*   failed: chunks, a line each; row: a byte a failure since the last success;
//                     times: nanoseconds an inference, a line a success; checked, aside: are there
//                     once that is so; lock: see SshBoard; turn-S: locked by whoever runs at
//                     slot S; stale: the programs there did not run, and are to be sent
//                     anew, with model and configuration; anew: they were
//     waiting/N       the ticket at place N has nothing that it could take
//     running         locked by every ticket that is at work
//     over            there is nothing left to take
//     limit           this machine could not go on
#ifndef VORN_KIT_FLEET_ROUND_H_
#define VORN_KIT_FLEET_ROUND_H_

#include <cstdint>
#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/fleet/boards.h"
#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/fleet_state.h"
#include "kit/launch/program.h"

namespace vorn::kit {

/// Makes FLEET/round anew. The boards' tools are archives no more behind it. Throws a Fault.
void PrepareRound(const std::string& fleet, const FleetState& state, std::vector<Board> boards,
                  const std::vector<uint64_t>& chunks, StopSignals& signals);

/// Is there once a ticket has met a limit of this machine.
[[nodiscard]] std::string RoundLimitFile(const std::string& fleet);

/// A line a ticket, for so many chunks: every slot gets one that finds nothing left to take, even
/// where others were spent on boards that failed their cross-check.
[[nodiscard]] std::string TicketsFor(const std::vector<Board>& boards, size_t chunks);

/// The command that hands the tickets out: its input are those. The program, the fleet and the
/// folder for sockets it finds in VORN_FLEET_PROGRAM, VORN_FLEET_FOLDER and VORN_FLEET_SOCKETS.
[[nodiscard]] std::vector<std::string> RoundCommand(const std::vector<Board>& boards);

struct TicketRequest {
  std::string fleet;
  uint64_t place = 1;   ///< among those that run at once, from 1, as parallel counts them
  std::string sockets;  ///< a folder for the connections that are kept
};

/// One ticket, from what to take to its end in the journal. A board that fails again and again is
/// put aside. Ends with kDone whether or not a chunk was done: the journal tells.
[[nodiscard]] ExitStatus RunTicket(const TicketRequest& request);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_ROUND_H_
