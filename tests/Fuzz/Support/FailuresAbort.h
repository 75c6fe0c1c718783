#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

namespace Tavrin::Fuzz {

/// Ends the process at the first expectation that fails: the models compare with GoogleTest's expectations, and the
/// fuzzer takes nothing but an end of the process for a finding.
class FailuresAbort final : public ::testing::EmptyTestEventListener {
public:
    /// Once for the process; later calls do nothing.
    static void Install() {
        [[maybe_unused]] static const bool isInstalled = [] {
            auto& listeners = ::testing::UnitTest::GetInstance()->listeners();
            delete listeners.Release(listeners.default_result_printer());
            listeners.Append(new FailuresAbort);  // which owns it then
            return true;
        }();
    }

private:
    void OnTestPartResult(const ::testing::TestPartResult& result) override {
        if (result.failed()) {
            std::cerr << "Broken: " << result.file_name() << ":" << result.line_number() << ": "
                      << result.message() << std::endl;
            std::abort();
        }
    }
};

}  // namespace Tavrin::Fuzz
