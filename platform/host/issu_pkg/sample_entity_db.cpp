// The sample entity database a new sandbox starts with, so that the entity queries answer out of
// the box; tests and script authors replace it with `qavpkg entitydb`.
#include <fstream>

#include "host.h"

namespace {

constexpr const char *kSample = R"(<?xml version="1.0" encoding="UTF-8"?>
<PackageDescription>
  <Entity name="base" id="1" type="process" cpu="main">
    <Version>1.0.0</Version>
    <UpgradeMode>restart</UpgradeMode>
    <File>base.so</File>
  </Entity>
  <Entity name="rib" id="2" type="process" cpu="main">
    <Version>1.0.0</Version>
    <UpgradeMode>hitless</UpgradeMode>
    <File>rib.so</File>
    <Require name="base" rel="&gt;=" version="1.0"/>
  </Entity>
</PackageDescription>
)";

std::string write_sample_entity_db(const std::string &root) {
    std::string path = root + zakhost::kCommonRoot + "/data/c_entity.xml";
    std::ofstream out(path);
    out << kSample;
    return out ? std::string() : "cannot write " + path;
}

const zakhost::SandboxSeed kSeed{"c_entity", &write_sample_entity_db};

} // namespace
