// Slots that do nothing, and the reading of the credential.
#include "transfer/console_log.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr const char* kRecordPath = "/mnt/usrdata/persistent/pdata.rt_file.ESAT";

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};

}  // namespace

void CConsoleLog::log(const char* /*format*/, ...) {}
void CConsoleLog::reserved1() {}
void CConsoleLog::reserved2() {}
void CConsoleLog::reserved3() {}
void CConsoleLog::logError(const char* /*format*/, ...) {}
void CConsoleLog::reserved5() {}

CConsoleLog::~CConsoleLog() {
    explicit_bzero(record_, sizeof record_);
}

int CConsoleLog::readCredential(const char** out) {
    std::unique_ptr<FILE, CloseFile> file(std::fopen(kRecordPath, "rb"));
    if (!file) {
        return -1;
    }
    std::setvbuf(file.get(), nullptr, _IONBF, 0);  // no copy of it stays behind in freed memory
    const std::size_t length = std::fread(record_, 1, kRecordSize, file.get());
    file.reset();
    record_[kRecordSize] = '\0';
    if (length != kRecordSize) {
        return -2;
    }
    *out = record_ + kRecordSize / 2;
    return 0;
}
