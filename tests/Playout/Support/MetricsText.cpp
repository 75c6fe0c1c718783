#include "Playout/Support/MetricsText.h"

#include <cmath>
#include <cstdlib>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace Tavrin::Playout::Support {

namespace {

const std::string kName = "[a-zA-Z_:][a-zA-Z0-9_:]*";
const std::string kLabel = R"([a-zA-Z_][a-zA-Z0-9_]*="(?:[^"\\\n]|\\["\\n])*")";

class Parser {
public:
    MetricsText Parse(const std::string& text) {
        if (!text.ends_with("\n# EOF\n")) {
            throw std::runtime_error("the text does not end with \"# EOF\"");
        }
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            line_ = line;
            Require(!isOver_, "nothing follows the mark of the end");
            line.starts_with('#') ? ParseDeclaration() : ParseSample();
        }
        return result_;
    }

private:
    void Require(bool holds, const std::string& rule) const {
        if (!holds) {
            throw std::runtime_error('"' + line_ + "\": " + rule);
        }
    }

    void ParseDeclaration() {
        static const std::regex pattern("# (TYPE|UNIT|HELP) (" + kName + ") (.+)");
        if (line_ == "# EOF") {
            isOver_ = true;
            return;
        }
        std::smatch match;
        Require(std::regex_match(line_, match, pattern), "it is no declaration");
        const std::string what = match[1];
        if (what == "TYPE") {
            BeginMetric(match[2], match[3]);
        } else {
            Require(match[2] == metric_, "it belongs to the metric whose type was declared last");
            Require(!hasSamples_, "declarations come before samples");
        }
        if (what == "UNIT") {
            Require(metric_.ends_with("_" + match[3].str()), "a unit ends the metric's name");
            Require(result_.units.emplace(metric_, match[3]).second, "a unit is declared once");
        }
    }

    void BeginMetric(const std::string& name, const std::string& type) {
        Require(result_.types.emplace(name, type).second, "a metric is declared once");
        metric_ = name;
        hasSamples_ = false;
    }

    void ParseSample() {
        static const std::regex pattern("(" + kName + ")(?:\\{(" + kLabel + "(?:," + kLabel +
                                        ")*)\\})? ([-+.eE0-9]+)");
        std::smatch match;
        Require(std::regex_match(line_, match, pattern), "it is no sample");
        Require(!metric_.empty(), "a metric is declared before its samples");
        CheckEnding(match[1], match[2]);
        char* end = nullptr;
        const std::string number = match[3];
        const double value = std::strtod(number.c_str(), &end);
        Require(*end == '\0' && std::isfinite(value), "its value is no number");
        const bool isLevel = result_.types.at(metric_) == "gauge";
        Require(isLevel || value >= 0, "what only grows is not below zero");
        const std::string key = line_.substr(0, line_.rfind(' '));
        Require(result_.samples.emplace(key, value).second, "a sample is written once");
        hasSamples_ = true;
    }

    void CheckEnding(const std::string& name, const std::string& labels) const {
        const std::string& type = result_.types.at(metric_);
        const bool isQuantile = std::regex_search(labels, std::regex(R"re(quantile="0?\.?[0-9]+")re"));
        if (type == "counter") {
            Require(name == metric_ + "_total", "a counter's samples end in _total");
        } else if (type == "info") {
            Require(name == metric_ + "_info", "an info's samples end in _info");
        } else if (type == "summary") {
            Require(name == metric_ + "_count" || name == metric_ + "_sum" || name == metric_,
                    "a summary's samples are its count, its sum and its quantiles");
            Require((name == metric_) == isQuantile, "quantiles, and only they, have that label");
        } else {
            Require(type == "gauge", "the type is not one of those used");
            Require(name == metric_, "a gauge's samples have its name");
        }
    }

    std::string line_;
    std::string metric_;
    bool hasSamples_ = false;
    bool isOver_ = false;
    MetricsText result_;
};

}  // namespace

MetricsText ParseMetrics(const std::string& text) {
    return Parser().Parse(text);
}

}  // namespace Tavrin::Playout::Support
