// Where the database lies, and where it must not.
#ifndef VORN_KIT_LEDGER_LEDGER_PLACE_H_
#define VORN_KIT_LEDGER_LEDGER_PLACE_H_

#include <optional>
#include <string>

namespace vorn::kit {

/// `named` if it is not empty; else $VORN_HISTORY, else $XDG_DATA_HOME/vorn/history.sqlite, else
/// $HOME/.local/share/vorn/history.sqlite; absolute. Throws a Fault of kUsage where none of them is
/// there.
[[nodiscard]] std::string LedgerPath(const std::string& named);

/// What the kernel calls the file system of this number, where others share it over a network:
/// "NFS". Locks, which the database hangs on, are not to be trusted there.
[[nodiscard]] std::optional<std::string> NetworkFileSystem(unsigned long type);

/// Throws a Fault of kLimit where the file, or the folder that it is to be made in, lies on a
/// network file system; of kInput where something else is in its place than a file that is
/// empty or as large as a database is at least.
void HoldToLocalFile(const std::string& path);

/// Makes the folders above the file, where it is one that nobody named.
void MakeFoldersOf(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_LEDGER_LEDGER_PLACE_H_
