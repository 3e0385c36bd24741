// A file that goes with the test. No other test has it, nor the same one that another program runs
// at the same time.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace Host {

class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& content = {}, const std::string& suffix = {})
        : path_(testing::TempDir() + "stagemgr-" + std::to_string(getpid()) + "-" +
                testing::UnitTest::GetInstance()->current_test_info()->name() + suffix) {
        std::ofstream(path_, std::ios::binary) << content;
    }
    ~TemporaryFile() { std::remove(path_.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }
    std::string content() const {
        std::ostringstream text;
        text << std::ifstream(path_, std::ios::binary).rdbuf();
        return text.str();
    }

  private:
    std::string path_;
};

}  // namespace Host
