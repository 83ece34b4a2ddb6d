#pragma once
// Runs qxdb in a folder of the test's own.

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>

#include "qx_db/platform/file.h"

#include "tests/scratch_folder.h"

namespace qx {

struct Ran {
  int code = -1;
  std::string out;
  std::string err;
};

/// Whether a command ended by a refusal or as misuse, which its exit code tells apart.
inline bool IsStopped(const Ran& run) { return run.code == 1 || run.code == 2; }

class Cli : public testing::Test {
 protected:
  Cli() {
    Write(
        "good.msh",
        "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$PhysicalNames\n1\n3 1 \"body\"\n$EndPhysicalNames\n"
        "$Nodes\n5\n1 0 0 0\n2 1 0 0\n3 0 1 0\n4 0 0 1\n5 1 1 1\n$EndNodes\n"
        "$Elements\n2\n1 4 2 1 1 1 2 3 4\n2 4 2 1 1 2 3 4 5\n$EndElements\n");
  }

  std::string Path(const std::string& name) const { return folder_.Path(name); }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
  }

  /// Runs qxdb in the test's folder.
  Ran Qxdb(const std::string& arguments) const {
    const std::string command = "cd '" + folder_.Path().string() + "' && '" QX_QXDB "' " +
                                arguments + " 2> err.txt > out.txt";
    Ran run;
    run.code = WEXITSTATUS(std::system(command.c_str()));
    run.out = *ReadWholeFile(Path("out.txt"));
    run.err = *ReadWholeFile(Path("err.txt"));
    return run;
  }

  const ScratchFolder folder_;
};

}  // namespace qx
