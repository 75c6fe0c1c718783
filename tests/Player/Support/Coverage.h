#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <map>
#include <string>

namespace Tavrin::Player::Testing {

/// How often each interesting thing happened: a model test that never meets a tie proves nothing about ties.
class Coverage {
public:
    void Saw(const std::string& what, std::size_t nb = 1) { counts_[what] += nb; }
    void SawIf(bool seen, const std::string& what) { Saw(what, seen ? 1 : 0); }

    std::size_t Count(const std::string& what) const {
        const auto found = counts_.find(what);
        return found == counts_.end() ? 0 : found->second;
    }

    void ExpectSeen(std::size_t nbTimes, std::initializer_list<const char*> situations) const {
        for (const char* situation : situations) {
            EXPECT_GE(Count(situation), nbTimes) << situation << " hardly ever happened";
        }
    }

private:
    std::map<std::string, std::size_t> counts_;
};

}  // namespace Tavrin::Player::Testing
