// The host package manager over description files written by the test.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "unit_helpers.h"
#include "issu_pkg.h"

namespace {

class PackageFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = unit::TempDir();
        blocks_ = zakhost::live_blocks();
    }
    void TearDown() override {
        std::string cmd = "rm -rf " + dir_;
        EXPECT_EQ(std::system(cmd.c_str()), 0);
        EXPECT_EQ(zakhost::live_blocks(), blocks_) << "package manager blocks left behind";
    }
    ISSU_PKG *Load(const std::string &body) {
        std::string path = dir_ + "/p" + std::to_string(files_++) + ".xml";
        std::ofstream(path) << "<PackageDescription>" << body << "</PackageDescription>";
        ISSU_PKG *package = ISSU_PKG_CreatePkg();
        EXPECT_EQ(ISSU_PKG_Load(package, path.c_str()), 0) << body;
        return package;
    }
    static std::vector<std::string> Names(ISSU_CDT *container) {
        std::vector<std::string> names;
        for (QAV_RBT_NODE *n = QAV_RBT_FirstNode(container); n != nullptr; n = QAV_RBT_NextNode(n))
            names.push_back(n->pstEntity->pcName);
        return names;
    }
    std::string dir_;
    int files_ = 0;
    int64_t blocks_ = 0;
};

TEST_F(PackageFiles, VersionsCompareByNumericPartsAndPrintWithoutPadding) {
    ISSU_PKG *p = Load("<Entity name='a'><Version>1.10</Version></Entity>"
                       "<Entity name='b'><Version>1.9.0</Version></Entity>"
                       "<Entity name='c'><Version>1.10.0.0</Version></Entity>");
    auto version = [p](const char *name) { return ISSU_PKG_QueryEntity(p, name)->pstVersion; };
    const ISSU_VER *a = version("a"), *b = version("b"), *c = version("c");
    EXPECT_GT(ISSU_VER_Compare(a, b), 0);
    EXPECT_LT(ISSU_VER_Compare(b, a), 0);
    EXPECT_EQ(ISSU_VER_Compare(a, c), 0);
    char *text = ISSU_VER_ToString(c);
    EXPECT_STREQ(text, "1.10.0.0");
    RPM_Os_Free(text);
    EXPECT_EQ(ISSU_VER_ToString(nullptr), nullptr);
    ISSU_PKG_DeletePkg(p);
}

TEST_F(PackageFiles, LoadRejectsBadDescriptionsAndSecondLoads) {
    ISSU_PKG *p = Load("<Entity name='a'/>");
    EXPECT_EQ(ISSU_PKG_Load(p, "again.xml"), ISSU_PKG_ERR_LOADED);
    ISSU_PKG_DeletePkg(p);
    const char *bad[] = {
        "<Entity name='a'/><Entity name='a'/>",                              // duplicate name
        "<Entity name='a'><Require name='b' rel='~' version='1'/></Entity>", // unknown relation
        "<Entity name='a'><Require name='b' rel='&gt;'/></Entity>",          // relation without version
        "<Entity name='a'><Compat>256</Compat></Entity>",                    // byte out of range
        "<Entity name='a'><Version>1.2.3.4.5.6.7.8.9</Version></Entity>",    // too many parts
        "<Entity name='a' id='-1'/>",
    };
    for (const char *body : bad) {
        std::string path = dir_ + "/bad.xml";
        std::ofstream(path) << "<PackageDescription>" << body << "</PackageDescription>";
        ISSU_PKG *q = ISSU_PKG_CreatePkg();
        EXPECT_EQ(ISSU_PKG_Load(q, path.c_str()), ISSU_PKG_ERR_PARSE) << body;
        EXPECT_EQ(ISSU_PKG_QueryEntity(q, "a"), nullptr) << "a failed load keeps nothing";
        ISSU_PKG_DeletePkg(q);
    }
    ISSU_PKG *q = ISSU_PKG_CreatePkg();
    EXPECT_EQ(ISSU_PKG_Load(q, ""), ISSU_PKG_ERR_PARAM);
    ISSU_PKG_DeletePkg(q);
}

TEST_F(PackageFiles, RelationsMeetVersionsAndPrintAsText) {
    ISSU_PKG *p =
        Load("<Entity name='x'><Version>2.0</Version></Entity><Entity name='nover'/>"
             "<Entity name='u'>"
             "<Require name='x' rel='=' version='2'/><Require name='x' rel='&lt;=' version='2.0.0'/>"
             "<Require name='x' rel='&lt;' version='2'/><Require name='nover' rel='&gt;=' version='1'/>"
             "<Require name='nover'/></Entity>");
    ISSU_PTR_LIST *matched = ISSU_PtrListCreate();
    ISSU_PTR_LIST *mismatched = ISSU_PtrListCreate();
    ASSERT_EQ(ISSU_PKG_CheckDep(p, "u", matched, mismatched), 0);
    std::vector<std::string> texts[2];
    ISSU_PTR_LIST *lists[2] = {matched, mismatched};
    for (int l = 0; l < 2; l++)
        for (uint32_t i = 1; i <= ISSU_PtrListCountNum(lists[l]); i++) {
            char *text = ISSU_REL_ToString(static_cast<ISSU_REL *>(ISSU_PtrListGetNode(lists[l], i)));
            texts[l].push_back(text);
            RPM_Os_Free(text);
        }
    EXPECT_EQ(texts[0], (std::vector<std::string>{"x = 2", "x <= 2.0.0", "nover"}));
    // An entity without a version meets only a requirement on any version.
    EXPECT_EQ(texts[1], (std::vector<std::string>{"x < 2", "nover >= 1"}));
    EXPECT_EQ(ISSU_PtrListGetNode(matched, 0), nullptr);
    EXPECT_EQ(ISSU_PtrListGetNode(matched, 4), nullptr);
    EXPECT_EQ(ISSU_PKG_CheckDep(p, "none", matched, mismatched), ISSU_PKG_ERR_NOT_FOUND);
    ISSU_PtrListFree(matched);
    ISSU_PtrListFree(mismatched);
    ISSU_PKG_DeletePkg(p);
}

// (Chains and cycles are the script-level relation tests' part.)
TEST_F(PackageFiles, WhoRequireFindsRequirersOfANameNoEntityCarries) {
    ISSU_PKG *p = Load("<Entity name='a'/><Entity name='d'><Require name='ghost'/></Entity>");
    ISSU_CDT *c = ISSU_CDT_Create();
    ASSERT_EQ(ISSU_PKG_WhoRequireDeap(p, "ghost", c), 0);
    EXPECT_EQ(Names(c), (std::vector<std::string>{"d"}));
    ISSU_CDT_Delete(c);
    ISSU_PKG_DeletePkg(p);
}

TEST_F(PackageFiles, GroupsJoinDifferingEntitiesAndNamedRequirersAcrossBothPackages) {
    // Old: m requires k. New: k requires j. Only j, k and z differ; n is named by the caller.
    ISSU_PKG *a =
        Load("<Entity name='j'><Version>1</Version></Entity>"
             "<Entity name='k'><Version>1</Version></Entity>"
             "<Entity name='m'><Require name='k'/></Entity><Entity name='n'><Require name='z'/></Entity>");
    ISSU_PKG *b =
        Load("<Entity name='j'><Version>2</Version></Entity>"
             "<Entity name='k'><Version>1</Version><Require name='j'/></Entity>"
             "<Entity name='m'><Require name='k'/></Entity><Entity name='n'><Require name='z'/></Entity>"
             "<Entity name='z'/>");
    ISSU_PTR_LIST *names = ISSU_PtrListCreate();
    ISSU_PtrListAppend(names, const_cast<char *>("n"), nullptr);
    ISSU_PtrListAppend(names, const_cast<char *>("unknown"), nullptr);
    ISSU_PTR_LIST *groups = ISSU_PtrListCreate();
    ASSERT_EQ(ISSU_PKG_EntityGroup(a, b, names, groups), 0);
    ASSERT_EQ(ISSU_PtrListCountNum(groups), 2u);
    auto *g1 = static_cast<ISSU_ENTITY_GROUP *>(ISSU_PtrListGetNode(groups, 1));
    auto *g2 = static_cast<ISSU_ENTITY_GROUP *>(ISSU_PtrListGetNode(groups, 2));
    EXPECT_EQ(g1->uiGroupId, 1u);
    EXPECT_EQ(Names(g1->pstEntities), (std::vector<std::string>{"j", "k"}));
    EXPECT_EQ(Names(g2->pstEntities), (std::vector<std::string>{"n", "z"}));
    // Members carry the candidate's record.
    EXPECT_EQ(QAV_RBT_FirstNode(g1->pstEntities)->pstEntity, ISSU_PKG_QueryEntity(b, "j"));
    ISSU_PtrListFree(groups);
    ISSU_PtrListFree(names);
    ISSU_PKG_DeletePkg(a);
    ISSU_PKG_DeletePkg(b);
}

int g_freed = 0;
void CountFree(void *item) {
    g_freed++;
    std::free(item);
}

TEST(PkgmgrLists, FreeReleasesEveryItemWithItsOwnFunction) {
    ISSU_PTR_LIST *list = ISSU_PtrListCreate();
    g_freed = 0;
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(ISSU_PtrListAppend(list, std::malloc(4), &CountFree), 0u);
    static int borrowed = 0;
    EXPECT_EQ(ISSU_PtrListAppend(list, &borrowed, nullptr), 0u);
    EXPECT_EQ(ISSU_PtrListCountNum(list), 4u);
    EXPECT_NE(ISSU_PtrListAppend(nullptr, &borrowed, nullptr), 0u);
    ISSU_PtrListFree(list);
    EXPECT_EQ(g_freed, 3);
    ISSU_PtrListFree(nullptr);
}

} // namespace
