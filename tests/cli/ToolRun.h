// Runs the built tool as a user would, with given standard input, and keeps what it printed.
#pragma once

#include <string>
#include <vector>

namespace zrk::test {

struct ToolRun {
  int code = -1;  // the exit status; -1 when the tool did not exit normally
  std::string out, err;
};

// Runs zrkkvl with `args` (no shell between), standard input from `input`.
ToolRun runTool(const std::vector<std::string>& args, const std::string& input = "");

// The same as the unprivileged user "nobody", for the cases that root's rights would hide.
ToolRun runToolAsNobody(const std::vector<std::string>& args);

// Any program, found on PATH, with `args`: for the same case through git config or crudini.
ToolRun runProgram(const std::vector<std::string>& argv, const std::string& input = "");
// The same as "nobody".
ToolRun runProgramAsNobody(const std::vector<std::string>& argv);
// Whether a program of that name is on PATH.
bool hasProgram(const std::string& name);

// Whether runToolAsNobody can run here (as root, with runuser at hand).
bool canRunAsNobody();

}  // namespace zrk::test
