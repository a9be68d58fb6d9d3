#include "kit/launch/libraries.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vorn::kit::LinkedLibraries;
using vorn::kit::ParseLoaderLines;

std::string FaultOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const vorn::kit::Fault& fault) {
    EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kRuntime);
    return fault.what();
  }
  return "";
}

TEST(Libraries, ReadsTheLinesOfTheLoader) {
  const LinkedLibraries libraries = ParseLoaderLines(
      "\tlinux-vdso.so.1 (0x00007ffd)\n"
      "\tlibvorn.so => /a b/libvorn.so (0x00007f01)\n"
      "\tlibdriver.so.3 => not found\n"
      "\tlibother.so => build/libother.so (0x00007f03)\n"  // of a folder that is named so
      "\t/lib64/ld-linux-x86-64.so.2 (0x00007f02)");
  EXPECT_THAT(libraries.found,
              ElementsAre("/a b/libvorn.so", "build/libother.so", "/lib64/ld-linux-x86-64.so.2"));
  EXPECT_THAT(libraries.missing, ElementsAre("libdriver.so.3"));
  EXPECT_THAT(ParseLoaderLines("usage: program\n\n").found, IsEmpty());
}

TEST(Libraries, FindsTheRuntimeAmongThem) {
  EXPECT_EQ(
      vorn::kit::FindRuntime("p", {.found = {"/x/libc.so", "/y/libvorn.so.1"}, .missing = {}}),
      "/y/libvorn.so.1");
}

TEST(Libraries, TellsThatThereIsNoRuntimeOrNotAllOfIt) {
  EXPECT_EQ(
      FaultOf([] { (void)vorn::kit::FindRuntime("p", {.found = {}, .missing = {"libvorn.so"}}); }),
      "'p' finds no libvorn.so; name its folder in LD_LIBRARY_PATH");
  EXPECT_EQ(FaultOf([] {
              (void)vorn::kit::FindRuntime(
                  "p", {.found = {"/y/libvorn.so"}, .missing = {"libdriver.so"}});
            }),
            "'p' finds no libdriver.so; name its folder in LD_LIBRARY_PATH");
  EXPECT_THAT(
      FaultOf([] { (void)vorn::kit::FindRuntime("p", {.found = {"/x/libc.so"}, .missing = {}}); }),
      HasSubstr("is not linked with a libvorn.so"));
}

TEST(Libraries, AsksTheLoaderWithoutRunningTheProgram) {
  EXPECT_THAT(vorn::kit::AskLoader("/bin/sh").value().found, Contains(HasSubstr("libc.so")));
}

TEST(Libraries, RunsNothingThatTheLoaderDoesNotLoad) {
  support::TempDir folder;
  const std::string script = (folder.Path() / "script").string();
  support::WriteFile(script, "#!/bin/sh\necho ran >" + script + ".ran\n");
  EXPECT_THAT(FaultOf([&] { (void)vorn::kit::AskLoader(script); }), HasSubstr("cannot be run"));
  std::filesystem::permissions(script, std::filesystem::perms::all);
  EXPECT_FALSE(vorn::kit::AskLoader(script).has_value());
  EXPECT_FALSE(std::filesystem::exists(script + ".ran"));
  EXPECT_THAT(FaultOf([] { (void)vorn::kit::AskLoader("/no/program"); }),
              HasSubstr("'/no/program' cannot be run: No such file or directory"));
}

TEST(Libraries, ListsWhatAProcessHas) {
  EXPECT_THAT(vorn::kit::MappedLibraries(getpid()), Contains(HasSubstr("libc.so")));
  EXPECT_THAT(vorn::kit::MappedLibraries(-1), IsEmpty());
}

std::string NoteBytes(uint32_t type, const std::string& name, const std::string& content) {
  const ElfW(Nhdr) note{.n_namesz = static_cast<uint32_t>(name.size()),
                        .n_descsz = static_cast<uint32_t>(content.size()),
                        .n_type = type};
  const auto padded = [](std::string bytes) {
    while (bytes.size() % 4 != 0) bytes += '\0';
    return bytes;
  };
  return std::string(reinterpret_cast<const char*>(&note), sizeof(note)) + padded(name) +
         padded(content);
}

// A file of a header, one part, and the notes that this one is about.
std::string ElfWithNotes(const std::string& notes) {
  ElfW(Ehdr) header{};
  std::memcpy(header.e_ident, ELFMAG, SELFMAG);
  header.e_phoff = sizeof(header);
  header.e_phnum = 1;
  header.e_phentsize = sizeof(ElfW(Phdr));
  ElfW(Phdr) part{};
  part.p_type = PT_NOTE;
  part.p_offset = sizeof(header) + sizeof(part);
  part.p_filesz = notes.size();
  return std::string(reinterpret_cast<const char*>(&header), sizeof(header)) +
         std::string(reinterpret_cast<const char*>(&part), sizeof(part)) + notes;
}

TEST(Libraries, ReadsTheBuildId) {
  support::TempDir folder;
  const std::string path = (folder.Path() / "elf").string();
  const std::string gnu("GNU\0", 4);
  const std::string whole =
      ElfWithNotes(NoteBytes(1, gnu, "abcdef") + NoteBytes(3, gnu, "\x01\xfe\x30"));
  support::WriteFile(path, whole);
  EXPECT_EQ(vorn::kit::BuildIdOf(path), "01fe30");
  support::WriteFile(path, ElfWithNotes(NoteBytes(3, "XNU", "\x01")));
  EXPECT_EQ(vorn::kit::BuildIdOf(path), std::nullopt);
  for (size_t size = 0; size < whole.size() - 1; ++size) {
    support::WriteFile(path, whole.substr(0, size));
    EXPECT_EQ(vorn::kit::BuildIdOf(path), std::nullopt) << size;
  }
  EXPECT_EQ(vorn::kit::BuildIdOf("/no/file"), std::nullopt);
}

}  // namespace
