#include "apps/playout/BenchReport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <limits>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "apps/playout/Text.h"

namespace Tavrin::Playout::Program {

namespace {

constexpr int kCaseWidth = 28;
constexpr int kColumnWidth = 9;
constexpr unsigned kFirstPrintable = 0x20;

struct Column {
    const char* title;
    const char* figure;
    int decimals;
};

constexpr std::array kColumns{
    Column{"right %", "rightPercent", 1}, Column{"clock %", "rightByClockPercent", 1},
    Column{"stand ms", "standMs", 1},     Column{"gap ms", "gapMs", 1},
    Column{"new/s", "newPerSecond", 1},   Column{"pict/s", "picturesPerSecond", 1},
    Column{"first ms", "firstMs", 1},     Column{"p50 ms", "p50Ms", 1},
    Column{"p95 ms", "p95Ms", 1},         Column{"max ms", "maxMs", 1},
    Column{"wrong", "wrong", 0},          Column{"CPU ms", "cpuMsPerPicture", 2},
    Column{"MiB", "peakMiB", 0},          Column{"B/pict", "bytesReadPerPicture", 0},
};

std::string Cell(const BenchFigures& figures, const Column& column) {
    const auto figure = std::find_if(figures.begin(), figures.end(),
                                     [&column](const auto& entry) { return entry.first == column.figure; });
    return figure == figures.end() ? "" : FormatDecimal(figure->second, column.decimals);
}

std::string Escaped(const std::string& text) {
    std::ostringstream out;
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out << '\\' << c;
        } else if (static_cast<unsigned char>(c) < kFirstPrintable) {
            out << "\\u" << std::hex << std::setfill('0') << std::setw(4) << static_cast<int>(c);
        } else {
            out << c;
        }
    }
    return out.str();
}

std::string Quoted(const std::string& text) {
    return '"' + Escaped(text) + '"';
}

/// JSON knows no infinite numbers.
std::string Number(double value) {
    std::ostringstream out;
    out << std::setprecision(std::numeric_limits<double>::max_digits10) << value;
    return std::isfinite(value) ? out.str() : "null";
}

void PrintFigures(std::ostream& out, const BenchFigures& figures) {
    out << "\"figures\": {";
    for (std::size_t i = 0; i < figures.size(); ++i) {
        out << (i == 0 ? "" : ", ") << Quoted(figures[i].first) << ": " << Number(figures[i].second);
    }
    out << '}';
}

void PrintResult(std::ostream& out, const BenchResult& result) {
    out << "    {\"file\": " << Quoted(result.file) << ", \"case\": " << Quoted(result.what.name)
        << ", \"tracks\": " << result.what.nbTracks << ", ";
    if (result.error.empty()) {
        PrintFigures(out, result.figures);
    } else {
        out << "\"error\": " << Quoted(result.error);
    }
    out << '}';
}

}  // namespace

std::string ToText(const BenchFigures& figures) {
    std::ostringstream out;
    out << std::setprecision(std::numeric_limits<double>::max_digits10);
    for (const auto& [name, value] : figures) {
        out << name << ' ' << value << '\n';
    }
    return out.str();
}

BenchFigures FiguresOf(const std::string& text) {
    BenchFigures figures;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::size_t space = line.find(' ');
        try {
            figures.emplace_back(line.substr(0, space), std::stod(line.substr(space + 1)));
        } catch (const std::logic_error&) {
            throw std::runtime_error("'" + line + "' is no figure");
        }
    }
    return figures;
}

void PrintTableHead(std::ostream& out) {
    out << std::left << std::setw(kCaseWidth) << "case" << std::right;
    for (const Column& column : kColumns) {
        out << std::setw(kColumnWidth) << column.title;
    }
    out << std::endl;
}

void PrintTableRow(std::ostream& out, const BenchResult& result) {
    out << std::left << std::setw(kCaseWidth) << result.what.name << std::right;
    if (!result.error.empty()) {
        out << "  " << result.error << std::endl;
        return;
    }
    for (const Column& column : kColumns) {
        out << std::setw(kColumnWidth) << Cell(result.figures, column);
    }
    out << std::endl;
}

void PrintJson(std::ostream& out, const std::vector<BenchResult>& results, const BenchOptions& options) {
    constexpr double kMillisecondsPerSecond = 1e3;
    out << "{\n"
        << R"(  "machine": {"processors": )" << std::thread::hardware_concurrency() << "},\n"
        << R"(  "options": {"seconds": )"
        << Number(static_cast<double>(options.duration.count()) / kMillisecondsPerSecond)
        << ", \"tries\": " << options.nbTries << ", \"seed\": " << options.seed
        << ", \"budgetBytes\": " << options.session.memoryBytes << "},\n  \"results\": [";
    for (std::size_t i = 0; i < results.size(); ++i) {
        out << (i == 0 ? "\n" : ",\n");
        PrintResult(out, results[i]);
    }
    out << "\n  ]\n}\n";
}

}  // namespace Tavrin::Playout::Program
