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
    if (text.empty()) return forget(ctx);
    std::scoped_lock lock(buffer().mutex);
    buffer().texts.insert_or_assign(ctx, std::string(text));
}

void VtestTextBuffer::forget(const void* ctx) noexcept {
    std::scoped_lock lock(buffer().mutex);
    buffer().texts.erase(ctx);
}

std::string VtestTextBuffer::getVtestTxt(const void* ctx) {
    std::scoped_lock lock(buffer().mutex);
    auto found = buffer().texts.find(ctx);
    return found == buffer().texts.end() ? std::string() : found->second;
}

}  // namespace crv
