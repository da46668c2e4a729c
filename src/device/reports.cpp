// Notices scripts send to the management plane: the progress of an operation, the end of a log
// or VM information collection, and the HA delay-vote setting. Each reads its arguments with
// its input reader, sends one event-log record and pushes a status, in the manner of the traps:
// 5005 for a wrong argument count or unusable arguments (with a base-log line naming the
// function), else the event log's status.
#include "binding/script_frame.h"
#include "event/component_id.h"
#include "qav_event.h"
#include "securec.h"

namespace {

constexpr uint32_t kNumberCount = 2;

// One notice kind: two unsigned arguments, then an optional text; the record is "%u%u%s" of
// them, or "%u%u" without a text.
struct NoticeKind {
    const char *function;
    uint32_t infoCode;
    uint32_t textMax;      // longest text accepted; 0 when the notice has no text argument
    bool firstIsFlag;      // the first number is a 0/1 flag (a boolean is accepted too)
    uint32_t percentIndex; // 1-based number that must lie in 0..100, or 0
};

constexpr NoticeKind kProcess{"QAV_ReportProcess", 0x8091020, 255, false, 2};
constexpr NoticeKind kLogCollect{"QAV_ReportLogCollectFinish", 0x8091021, 255, false, 0};
constexpr NoticeKind kVmCollect{"QAV_ReportVMCollectFinish", 0x8091022, 1023, false, 0};
constexpr NoticeKind kDelayVote{"SZAK_SetDelayVote", 0x8091023, 0, true, 0};

int32_t ExpectedArgCount(const NoticeKind &kind) {
    return static_cast<int32_t>(kNumberCount + (kind.textMax != 0 ? 1 : 0));
}

} // namespace

// What a notice's input reader hands over.
struct QavNoticeInput {
    uint32_t numbers[kNumberCount];
    char text[1024];
};

namespace {

// 0 when every argument is usable, 1 otherwise.
uint32_t ReadNoticeInput(lua_State *state, const NoticeKind &kind, QavNoticeInput *input) {
    (void)memset_s(input, sizeof *input, 0, sizeof *input);
    for (uint32_t i = 0; i < kNumberCount; ++i) {
        int32_t index = static_cast<int32_t>(i + 1);
        if (i == 0 && kind.firstIsFlag && SYSDT_SPTI_IsBool(state, index) != 0) {
            input->numbers[i] = static_cast<uint32_t>(SYSDT_SPTI_ToBoolean(state, index));
            continue;
        }
        if (SYSDT_SPTI_IsNumber(state, index) == 0) return 1;
        input->numbers[i] = SYSDT_SPTI_ToUInt(state, index);
    }
    if (kind.firstIsFlag && input->numbers[0] > 1) return 1;
    if (kind.percentIndex != 0 && input->numbers[kind.percentIndex - 1] > 100) return 1;
    if (kind.textMax == 0) return 0;
    int32_t textIndex = static_cast<int32_t>(kNumberCount + 1);
    if (!qav::ValueIs(state, textIndex, 's')) return 1;
    return qav::CopyTextArg(state, textIndex, input->text, kind.textMax + 1, kind.function, __LINE__) ? 0 : 1;
}

int SendNotice(lua_State *state, const NoticeKind &kind, uint32_t (*reader)(lua_State *, QavNoticeInput *)) {
    int32_t count = qav::ArgCount(state);
    if (count != ExpectedArgCount(kind)) {
        QAV_Log(0, kind.infoCode, "%s proc fail. para num = %d\n", kind.function, count);
        return qav::ReturnUInt(state, qav::kGenericFailure);
    }
    QavNoticeInput input;
    if (reader(state, &input) != 0) {
        QAV_Log(0, kind.infoCode, "%s proc fail. get para failed.\n", kind.function);
        return qav::ReturnUInt(state, qav::kGenericFailure);
    }
    uint32_t cid = 0;
    uint32_t ret = QAV_GetEcmCid(&cid);
    if (ret != 0) {
        QAV_Log(0, kind.infoCode, "QAV_GetEcmCid proc fail. uiRet = %d \n", static_cast<int32_t>(ret));
        return qav::ReturnUInt(state, ret);
    }
    ret = kind.textMax != 0 ? QAV_EventLog(cid, kind.infoCode, "%u%u%s", input.numbers[0], input.numbers[1],
                                           static_cast<const char *>(input.text))
                            : QAV_EventLog(cid, kind.infoCode, "%u%u", input.numbers[0], input.numbers[1]);
    if (ret != 0)
        QAV_Log(0, kind.infoCode, "QAV_EventLog proc fail. uiRet = %d \n", static_cast<int32_t>(ret));
    return qav::ReturnUInt(state, ret);
}

} // namespace

extern "C" {

// Stage (unsigned), progress in percent (0..100), description (at most 255 characters).
uint32_t QAV_ReportProcessGetInput(lua_State *state, QavNoticeInput *input) {
    return ReadNoticeInput(state, kProcess, input);
}
// Session id, result code (0 success), path of the collected log package (at most 255).
uint32_t QAV_ReportLogCollectFinishGetInput(lua_State *state, QavNoticeInput *input) {
    return ReadNoticeInput(state, kLogCollect, input);
}
// Session id, result code (0 success), the collected VMs as one text (at most 1023).
uint32_t QAV_ReportVMCollectFinishGetInput(lua_State *state, QavNoticeInput *input) {
    return ReadNoticeInput(state, kVmCollect, input);
}
// Delay flag (0 or 1, or a boolean), delay in seconds.
uint32_t SZAK_SetDelayVoteGetInput(lua_State *state, QavNoticeInput *input) {
    return ReadNoticeInput(state, kDelayVote, input);
}

} // extern "C"

QAV_ENTRY_FUNCTION QAV_ReportProcess(lua_State *state) {
    return SendNotice(state, kProcess, QAV_ReportProcessGetInput);
}

QAV_ENTRY_FUNCTION QAV_ReportLogCollectFinish(lua_State *state) {
    return SendNotice(state, kLogCollect, QAV_ReportLogCollectFinishGetInput);
}

QAV_ENTRY_FUNCTION QAV_ReportVMCollectFinish(lua_State *state) {
    return SendNotice(state, kVmCollect, QAV_ReportVMCollectFinishGetInput);
}

QAV_ENTRY_FUNCTION SZAK_SetDelayVote(lua_State *state) {
    return SendNotice(state, kDelayVote, SZAK_SetDelayVoteGetInput);
}
