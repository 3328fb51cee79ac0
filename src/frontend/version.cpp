#include "frontend/version.h"

#include "build_number.h"
#include "link/protocol.h"
#include "support/text.h"

#ifndef SECAPP_BUILD_DATE
#define SECAPP_BUILD_DATE __DATE__
#define SECAPP_BUILD_TIME __TIME__
#endif

namespace secapp {
namespace {

constexpr const char* versionText = SECAPP_VERSION " (Build " SECAPP_BUILD_NUMBER ")";

std::string programName = "secapp";

} // namespace

std::string getVersionString(bool longForm) {
    if (longForm)
        return formatText("%s: Tavren VQX Scripting tool. v%s (%s %s)", programName.c_str(), versionText,
                          SECAPP_BUILD_DATE, SECAPP_BUILD_TIME);
    return formatText("%s: %s (%s %s)", programName.c_str(), versionText, SECAPP_BUILD_DATE,
                      SECAPP_BUILD_TIME);
}

void setProgramName(std::string_view path) {
    programName = path.substr(path.rfind('/') + 1);
}

const std::string& getProgramName() {
    return programName;
}

ErrorText versionHandler(HandlerData& record, std::string_view text, std::string_view, const HandlerEntry*) {
    if (record.outputHandler != nullptr)
        record.outputHandler(record, getVersionString(false), true);
    return sendCommand(record, text);
}

} // namespace secapp
