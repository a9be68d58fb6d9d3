// A stage for `vorn-run`: a folder with everything a run needs, the scripted runtime below it, and
// a transcript of what came of it.
//
//   <folder>/model.om     25 bytes
//   <folder>/vorn.json    {}
//   <folder>/list.txt     what `List` was given; absent until then
//   <folder>/out/         for the dumps
//
// The command runs in that folder, so that every name a test gives can be relative. In the
// transcript the folder reads `$DIR`, a time stamp in a file name `T`, and a measured time `T ms`.
#ifndef VORN_TESTS_SUPPORT_STAGE_H_
#define VORN_TESTS_SUPPORT_STAGE_H_

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/call_record.h"
#include "support/command.h"
#include "support/files.h"
#include "support/model_script.h"

namespace support {

struct Transcript {
  std::optional<int> status;
  std::optional<int> signal;
  std::vector<std::string> lines;            // of standard output, normalised
  std::string err;                           // standard error, normalised
  CallRecord record;                         // normalised
  std::map<std::string, std::string> files;  // below the output folder, by normalised name
  std::string rawOut;
  std::vector<std::string> rawFileNames;

  /// All of it, for the message of a failing test.
  [[nodiscard]] std::string Describe() const;

  /// True if a division by zero ended the run: by its signal, sanitized or not.
  [[nodiscard]] bool EndedByDivision() const;

  [[nodiscard]] bool HasLine(const std::string& line) const;

  /// The lines from the first `from` up to and without the next `to`. Empty if there is no `from`.
  [[nodiscard]] std::vector<std::string> Between(const std::string& from,
                                                 const std::string& to) const;
};

class Stage {
 public:
  Stage();

  [[nodiscard]] const std::filesystem::path& Folder() const { return folder_.Path(); }

  /// Writes a file of the stage.
  Stage& File(const std::string& name, const std::string& bytes);

  /// Writes list.txt, one entry per line.
  Stage& List(const std::vector<std::string>& entries);

  /// What the runtime plays.
  ModelScript script;

  /// Laid over the environment of the runs.
  std::map<std::string, std::optional<std::string>> environment;

  Command::Stdout stdoutGoes = Command::Stdout::kCapture;
  int descriptor = -1;

  /// Puts the lines of standard output among those of the record, as they come.
  bool isOutRecorded = false;

  /// Words before the executable: a program that arranges its surroundings and becomes it.
  std::vector<std::string> launcher;

  /// Where the transcript looks for dumped files.
  std::string outputFolder = "out";

  /// Runs `vorn-run -m model.om -i list.txt -j vorn.json -o out` with more words behind it.
  [[nodiscard]] Transcript Run(const std::vector<std::string>& more = {});

  /// Runs `vorn-run` with exactly these words.
  [[nodiscard]] Transcript RunWith(const std::vector<std::string>& words);

  /// The text with the folder and all that depends on time taken out.
  [[nodiscard]] std::string Normalise(const std::string& text) const;

 private:
  TempDir folder_;
};

/// The executable: what the environment variable VORN_RUN names, or the one of this build. Throws
/// std::runtime_error if there is none.
[[nodiscard]] std::string VornRunPath();

}  // namespace support

#endif  // VORN_TESTS_SUPPORT_STAGE_H_
