// The host configuration database: key selects, limits, class lookup and component addresses.
#include <gtest/gtest.h>

#include "cmf_db.h"
#include "host.h"

namespace {

class CmfDb : public ::testing::Test {
  protected:
    void TearDown() override {
        for (const auto &[section, key] : overridden_)
            zakhost::profile_override(section, key, std::nullopt);
        zakhost::inject_clear();
    }
    void Set(const char *section, const char *key, const char *value) {
        zakhost::profile_override(section, key, std::string(value));
        overridden_.emplace_back(section, key);
    }
    static CMF_DB_COND Keys(std::initializer_list<CMF_DB_KEY> keys, uint32_t matchNum = 0) {
        CMF_DB_COND cond{};
        cond.uiDbId = 1;
        cond.uiMatchNum = matchNum;
        for (const CMF_DB_KEY &key : keys)
            cond.astKey[cond.uiKeyNum++] = key;
        return cond;
    }
    std::vector<std::pair<std::string, std::string>> overridden_;
};

TEST_F(CmfDb, FirstRecordByComponentType) {
    CMF_DB_COND cond = Keys({{CMF_COMP_FIELD_TYPE, 4, 206}}, 1);
    uint32_t record[8];
    ASSERT_EQ(CMF_DBSelectFirstRec(CMF_TAB_COMPONENT, &cond, record, sizeof record), CMF_DB_OK);
    EXPECT_EQ(record[0], 0x10CE0001u);
    EXPECT_EQ(record[2], 0x01010201u);
    EXPECT_EQ(record[7], 0u); // beyond the record's fields the buffer is zero-filled
    EXPECT_EQ(CMF_DBSelectFirstRec(77, &cond, record, sizeof record), CMF_DB_ERR_NO_TABLE);
    // A short buffer gets the leading fields only; an injected failure comes back as given, once.
    cond = Keys({{CMF_COMP_FIELD_TYPE, 4, 204}});
    record[1] = 7;
    zakhost::inject("CMF_DBSelectFirstRec", 0x1234, 1, 1);
    ASSERT_EQ(CMF_DBSelectFirstRec(CMF_TAB_COMPONENT, &cond, record, 4), CMF_DB_OK);
    EXPECT_EQ(record[0], 0x10CC0001u);
    EXPECT_EQ(record[1], 7u);
    EXPECT_EQ(CMF_DBSelectFirstRec(CMF_TAB_COMPONENT, &cond, record, sizeof record), 0x1234u);
    EXPECT_EQ(CMF_DBSelectFirstRec(CMF_TAB_COMPONENT, &cond, record, sizeof record), CMF_DB_OK);
}

TEST_F(CmfDb, KeyWidthComparesLowOrderBytes) {
    // 0x10CE0001 and 0x10CC0001 share their two low-order bytes
    CMF_DB_COND cond = Keys({{CMF_COMP_FIELD_CID, 2, 0xFFFF0001}});
    uint32_t count = 0;
    ASSERT_EQ(CMF_DBGetRecNum(CMF_TAB_COMPONENT, &cond, &count), CMF_DB_OK);
    EXPECT_EQ(count, 2u);
    cond.astKey[0].uiLen = 4;
    ASSERT_EQ(CMF_DBGetRecNum(CMF_TAB_COMPONENT, &cond, &count), CMF_DB_OK);
    EXPECT_EQ(count, 0u);
    cond.astKey[0].uiLen = 3;
    EXPECT_EQ(CMF_DBGetRecNum(CMF_TAB_COMPONENT, &cond, &count), CMF_DB_ERR_PARA);
    cond = Keys({{0, 4, 1}});
    EXPECT_EQ(CMF_DBGetRecNum(CMF_TAB_COMPONENT, &cond, &count), CMF_DB_ERR_PARA);
    EXPECT_EQ(CMF_DBGetRecNum(CMF_TAB_COMPONENT, nullptr, &count), CMF_DB_ERR_PARA);
}

TEST_F(CmfDb, SelectAllHonoursMatchNumAndCapacity) {
    uint32_t table = 0;
    ASSERT_EQ(CMF_GetTabIdByClassId(CMF_CLASS_OSNODE, &table), CMF_DB_OK); // (46: board_control_test.lua)
    CMF_DB_COND cond = Keys({{CMF_OSNODE_FIELD_SHELF, 4, 0}, {CMF_OSNODE_FIELD_BOARD, 4, 2}});
    uint32_t records[4][7] = {};
    uint32_t count = 0;
    ASSERT_EQ(CMF_DBSelectAllRec(table, &cond, records, sizeof records[0], 4, &count), CMF_DB_OK);
    ASSERT_EQ(count, 2u);
    ASSERT_EQ(CMF_DBSelectAllRec(table, &cond, records, sizeof records[0], 1, &count), CMF_DB_OK);
    EXPECT_EQ(count, 1u);
    cond.uiMatchNum = 1;
    ASSERT_EQ(CMF_DBGetRecNum(table, &cond, &count), CMF_DB_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(CMF_GetTabIdByClassId(0x1234, &table), CMF_DB_ERR_NO_TABLE);
}

TEST_F(CmfDb, ProfileDescribesTables) {
    Set("cmf", "tables", "45 46 50");
    Set("cmf_table_50", "class", "0x5050");
    Set("cmf_table_50", "rec1", "9, 8 7");
    uint32_t table = 0;
    ASSERT_EQ(CMF_GetTabIdByClassId(0x5050, &table), CMF_DB_OK);
    CMF_DB_COND cond = Keys({{2, 1, 8}});
    uint32_t record[3];
    ASSERT_EQ(CMF_DBSelectFirstRec(table, &cond, record, sizeof record), CMF_DB_OK);
    EXPECT_EQ(record[0], 9u);
    EXPECT_EQ(record[2], 7u);
}

// (The default database's addresses are the board component-state tests' part.)
TEST_F(CmfDb, ComponentAddresses) {
    DMS_COMP_ADDR_INFO entries[DMS_CSI_MAX_ENTRIES] = {};
    uint32_t n = 0;
    EXPECT_EQ(DMS_CamCompAddrInfoGetByCsi(5, nullptr, entries), CMF_DB_ERR_PARA);
    EXPECT_EQ(DMS_CamCompAddrInfoGetByCpi(-9, entries), CMF_DB_ERR_NOT_FOUND);

    // a CSI with three instances reports three and writes two
    Set("dms_csi", "5", "1,1,1,1;2,2,2,2;3,3,3,3");
    DMS_COMP_ADDR_INFO guarded[3] = {};
    ASSERT_EQ(DMS_CamCompAddrInfoGetByCsi(5, &n, guarded), CMF_DB_OK);
    EXPECT_EQ(n, 3u);
    EXPECT_EQ(guarded[1].uiCompType, 2u);
    EXPECT_EQ(guarded[2].uiCompType, 0u);
}

} // namespace
