// Places of files: what is there, and what a path means.
#ifndef VORN_KIT_COMMON_FILE_PLACE_H_
#define VORN_KIT_COMMON_FILE_PLACE_H_

#include <string>

namespace vorn::kit {

/// Whether something is there that a path leads to; a link that leads to nothing is nothing.
[[nodiscard]] bool IsThere(const std::string& path);

/// Whether the name itself is taken, by a link that leads to nothing too.
[[nodiscard]] bool IsTaken(const std::string& path);

/// Whether both paths lead to one file that is there, by whatever names and links.
[[nodiscard]] bool IsSameFile(const std::string& one, const std::string& other);

/// A path that counts from `folder` on, as one that counts from here; empty is here. An absolute
/// one stays.
[[nodiscard]] std::string Below(const std::string& folder, const std::string& path);

/// The path from the root on, without empty parts and ".". A ".." stays: behind a link to a folder
/// it leads elsewhere than its spelling says. The path as it is where nobody knows where here is.
[[nodiscard]] std::string Absolute(const std::string& path);

/// The path without empty parts, "." and each "x/.." of which x is a folder and no link, so that it
/// leads to the same place; "." of one that leads to where it begins.
[[nodiscard]] std::string WithoutDetours(const std::string& path);

/// Makes a place in a folder that others may have written to fit for a file: removes a link, which
/// would lead to a file that nobody named. Throws a Fault of kLimit for what is there and is no
/// file, such as a pipe, which would be waited for.
void ClearPlace(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_FILE_PLACE_H_
