#include "commands/ram_download.h"

#include "support/echo.h"
#include "support/file.h"
#include "transfer/download.h"
#include "transfer/image_checksum.h"
#include "transfer/staging.h"

namespace secapp {
namespace {

constexpr std::uint32_t defaultDownloadSize = 32768;

} // namespace

ErrorText downloadHandler(HandlerData& record, std::string_view text, std::string_view word,
                          const HandlerEntry*) {
    const std::string command(word);
    TransferDescriptor descriptor;
    const std::optional<std::string_view> firstWord = nextWord(text);
    std::optional<std::string_view> name = nextWord(text);
    if (name && name->front() == '+') {
        if (!equalsIgnoringCase(*name, "+c"))
            return formatError("Unknown option '%s' for command %s", std::string(*name).c_str(),
                               command.c_str());
        descriptor.checksumMode = ChecksumMode::calculate;
        name = nextWord(text);
    }
    if (!name)
        return formatError("Filename cannot be empty");

    const std::string path(*name);
    const File file = openDataFile(path);
    if (!file)
        return formatError("Cannot open %s file '%s'", command.c_str(), path.c_str());
    const std::optional<FileState> state = fileState(file.get());
    const std::optional<std::int64_t> fileSize = measureFile(file.get());
    const std::int32_t limit = getMaxTransferBufferSize();
    const std::uint32_t size = limit >= 1 ? static_cast<std::uint32_t>(limit) : defaultDownloadSize;
    debug_print("%s, %s, 0x%x\n", std::string(*firstWord).c_str(), path.c_str(), 0U);
    descriptor.pageSize = size;
    descriptor.bufferSize = size;
    descriptor.burstSize = size;
    TransferSource source;
    source.stream = file.get();
    source.fileSize = fileSize;
    if (fileSize)
        source.fileState = state;
    if (descriptor.checksumMode != ChecksumMode::none) {
        if (ErrorText error = checkChunkSize(descriptor.bufferSize, fileSize))
            return error;
    }
    return download(record, source, 0, downloadBufferOverflowCallback, descriptor, "Downloaded");
}

} // namespace secapp
