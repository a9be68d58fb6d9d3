#include "e2e/surroundings.h"

#include <unistd.h>

#include "support/command.h"

namespace e2e {

Launcher AfterShell(const std::string& words) {
  return {"/bin/sh", "-c", words + " && exec \"$@\"", "sh"};
}

Launcher WithoutPrivileges() {
  if (geteuid() != 0) return {};
  // Still the owner of the files, but no longer above what their modes say.
  return {"setpriv", "--bounding-set=-dac_override,-dac_read_search",
          "--inh-caps=-dac_override,-dac_read_search"};
}

Launcher WithOwnMounts(const std::string& words) {
  Launcher launcher{"unshare", geteuid() == 0 ? "-m" : "-Urm"};
  const Launcher shell = AfterShell(words);
  launcher.insert(launcher.end(), shell.begin(), shell.end());
  return launcher;
}

bool CanLaunch(const Launcher& launcher) {
  if (launcher.empty()) return true;
  support::Command command;
  command.program = launcher.front();
  command.arguments.assign(launcher.begin() + 1, launcher.end());
  command.arguments.push_back("true");
  try {
    return support::RunCommand(command).status == 0;
  } catch (const std::exception&) {
    return false;  // there is no such launcher
  }
}

}  // namespace e2e
