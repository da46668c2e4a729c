// Node facts other areas use: the running product type and the NPS disk configuration check.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "device/node_info.h"
#include "unit_helpers.h"

namespace {

void MakeDirs(const std::string &path) {
    for (size_t pos = 1; pos != std::string::npos; pos = path.find('/', pos + 1))
        mkdir(path.substr(0, pos).c_str(), 0755);
    mkdir(path.c_str(), 0755);
}

class NodeInfo : public ::testing::Test {
  protected:
    void SetUp() override {
        // these tests write files under the device root: never on the machine itself
        if (zakhost::root().empty()) GTEST_SKIP() << "run with ZAKHOST_ROOT set to a sandbox (ctest does)";
        zakhost::log_clear();
        MakeDirs(zakhost::in_root("/zakv8/main/home"));
        MakeDirs(zakhost::in_root("/boot"));
        vercfg_ = zakhost::in_root("/zakv8/main/home/vercfg.xml");
    }
    void TearDown() override {
        zakhost::inject_clear();
        if (zakhost::root().empty()) return;
        std::remove(vercfg_.c_str());
        std::remove(zakhost::in_root("/boot/disk_cfg.ini").c_str());
    }
    void WriteVercfg(const std::string &body) { std::ofstream(vercfg_) << body; }
    std::string vercfg_;
};

TEST_F(NodeInfo, ProductTypeOfTheRunningVersion) {
    WriteVercfg("<Product><VNF><ProductType>EDGE-R</ProductType></VNF></Product>");
    char type[32];
    std::fill(std::begin(type), std::end(type), 'x');
    ASSERT_EQ(QAV_GetProductType(type), 0u);
    EXPECT_STREQ(type, "EDGE-R");
    EXPECT_EQ(type[31], '\0'); // the whole buffer was cleared first
}

TEST_F(NodeInfo, RunningVersionFileFromTheProfile) {
    std::string other = zakhost::in_root("/zakv8/main/home/other.xml");
    std::ofstream(other) << "<Product><VNF><ProductType>CORE-X</ProductType></VNF></Product>";
    zakhost::profile_override("rpm", "vercfg_file", std::string("/zakv8/main/home/other.xml"));
    char type[32];
    EXPECT_EQ(QAV_GetProductType(type), 0u);
    EXPECT_STREQ(type, "CORE-X");
    zakhost::profile_override("rpm", "vercfg_file", std::string(""));
    EXPECT_EQ(QAV_GetProductType(type), 1u);
    zakhost::profile_override("rpm", "vercfg_file", std::nullopt);
    std::remove(other.c_str());
}

TEST_F(NodeInfo, ProductTypeFailures) {
    char type[32];
    EXPECT_EQ(QAV_GetProductType(nullptr), 1u);
    EXPECT_TRUE(unit::Logged("upgrade", "The input is NULL."));

    WriteVercfg("<Product><VNF/></Product>");
    EXPECT_EQ(QAV_GetProductType(type), 1u);
    EXPECT_TRUE(unit::Logged("upgrade", "Get node <Product/VNF/ProductType> value from file(" + vercfg_ +
                                            ") fail! RetCode:"));
    zakhost::log_clear();
    zakhost::inject("RPM_GetVercfgFileName_HOOK", 3, 0, 1);
    EXPECT_EQ(QAV_GetProductType(type), 1u);
    EXPECT_TRUE(unit::Logged("upgrade", "The input is NULL."));
}

TEST_F(NodeInfo, DiskConfigurationMustBeReadable) {
    EXPECT_NE(QAV_CheckDiskCfgExistence(), 0u);
    std::ofstream(zakhost::in_root("/boot/disk_cfg.ini")) << "[disk]\nsize=1\n";
    EXPECT_EQ(QAV_CheckDiskCfgExistence(), 0u);
}

} // namespace
