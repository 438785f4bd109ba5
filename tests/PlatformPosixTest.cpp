// The POSIX stand-ins for the Windows folder and executable services.
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

TEST(CommonAppData, FollowsProgramDataWhenSet) {
    const char* saved = std::getenv("PROGRAMDATA");
    const std::string kept = saved ? saved : "";
    setenv("PROGRAMDATA", "/tmp/ff-data/", 1);
    EXPECT_EQ(platform::CommonAppDataFolder(), "/tmp/ff-data");
    unsetenv("PROGRAMDATA");
    EXPECT_EQ(platform::CommonAppDataFolder(), "/var/lib");
    if (saved) setenv("PROGRAMDATA", kept.c_str(), 1);
}

TEST(HostExecutable, IsLookedForBesideTheRunningProgram) {
    const std::string path = platform::HostExecutablePath();
    ASSERT_GT(path.size(), std::string("/ArchiveHost.exe").size());
    EXPECT_EQ(path.substr(path.size() - 16), "/ArchiveHost.exe");
    EXPECT_EQ(path.find("framefeed_tests"), std::string::npos);
}

}  // namespace
