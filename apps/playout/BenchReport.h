#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Playout/Bench.h"

namespace Tavrin::Playout::Program {

/// One case measured on one file.
struct BenchResult {
    std::string file;
    BenchCase what;
    BenchFigures figures;  ///< Empty when it failed.
    std::string error;     ///< Why it failed, or was left out; empty when it was measured.
};

/// As text of one process for another, and back: a line for each figure.
[[nodiscard]] std::string ToText(const BenchFigures& figures);
/// Throws std::runtime_error for a text that ToText does not make.
[[nodiscard]] BenchFigures FiguresOf(const std::string& text);

void PrintTableHead(std::ostream& out);
void PrintTableRow(std::ostream& out, const BenchResult& result);

/// An object with "machine" (processors), "options" and "results", a list of objects each with "file", "case",
/// "tracks", and either "figures" or "error".
void PrintJson(std::ostream& out, const std::vector<BenchResult>& results, const BenchOptions& options);

}  // namespace Tavrin::Playout::Program
