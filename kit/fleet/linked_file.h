// A file under a second name, without a second time its bytes where the file system can.
#ifndef VORN_KIT_FLEET_LINKED_FILE_H_
#define VORN_KIT_FLEET_LINKED_FILE_H_

#include <string>
#include <vector>

namespace vorn::kit {

/// Gives a regular file a second name, in place of what is there; where the two file systems cannot
/// have a file in common it is copied. `to` is the whole file, or not there. Throws a Fault of
/// kInput if `from` is gone or no regular file, of kLimit if `to` cannot be written. Returns
/// whether it was copied.
bool LinkOrCopy(const std::string& from, const std::string& to);

/// The same by copying alone.
void CopyFile(const std::string& from, const std::string& to);

/// Makes a folder that holds nothing but files of these names, if they are there. What else lies
/// there goes; a link in the folder's place, too. Throws a Fault of kLimit.
void MakeFolderFor(const std::string& folder, const std::vector<std::string>& names);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_LINKED_FILE_H_
