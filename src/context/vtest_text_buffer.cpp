#include "context/vtest_text_buffer.h"

#include <map>
#include <mutex>

namespace crv {
namespace {

struct Buffer {
    std::mutex mutex;
    std::map<const void*, std::string> texts;
};

Buffer& buffer() {
    static Buffer instance;
    return instance;
}

}  // namespace

void VtestTextBuffer::setVtestTxt(const void* ctx, std::string_view text) {
    std::scoped_lock lock(buffer().mutex);
    if (text.empty()) {
        buffer().texts.erase(ctx);
    } else {
        buffer().texts.insert_or_assign(ctx, std::string(text));
    }
}

std::string VtestTextBuffer::getVtestTxt(const void* ctx) {
    std::scoped_lock lock(buffer().mutex);
    auto found = buffer().texts.find(ctx);
    return found == buffer().texts.end() ? std::string() : found->second;
}

}  // namespace crv
