#include "net/fetch_message.h"

#include <algorithm>

#include "misc/byte_order.h"

namespace crv {

namespace {

/// Fields one behind another: numbers of eight octets, texts with their length before them.
class FieldWriter {
  public:
    void put(uint64_t number) {
        uint8_t octets[8];
        storeLe(octets, number);
        out.insert(out.end(), std::begin(octets), std::end(octets));
    }
    void put(ByteView octets) {
        put(octets.size());
        out.insert(out.end(), octets.begin(), octets.end());
    }
    void put(const std::string& text) { put(asBytes(text)); }
    void put(const SecretText& text) { put(text.bytes()); }
    void put(bool flag) { put(uint64_t{flag}); }
    template <class E>
    requires std::is_enum_v<E>
    void put(E value) { put(static_cast<uint64_t>(value)); }
    SecretBytes out;
};

class FieldReader {
  public:
    explicit FieldReader(ByteView octets) : rest_(octets) {}
    void get(uint64_t& number) {
        good = good && rest_.size() >= 8;
        if (!good) return;
        number = loadLe<uint64_t>(rest_.data());
        rest_ = rest_.subspan(8);
    }
    void get(Bytes& octets) { octets = toBytes(view()); }
    void get(std::string& text) { text = asText(view()); }
    void get(SecretText& text) { text = SecretText(asText(view())); }
    void get(bool& flag) {
        uint64_t number = 0;
        get(number);
        flag = number != 0;
    }
    template <class E>
    requires std::is_enum_v<E>
    void get(E& value) {
        uint64_t number = 0;
        get(number);
        value = static_cast<E>(number);
    }
    [[nodiscard]] bool atEnd() const { return good && rest_.empty(); }
    bool good = true;

  private:
    ByteView view() {
        uint64_t size = 0;
        get(size);
        good = good && size <= rest_.size();
        if (!good) return {};
        const ByteView octets = rest_.first(size);
        rest_ = rest_.subspan(size);
        return octets;
    }
    ByteView rest_;
};

/// The one list of what goes through the pipe.
template <class Request, class Each>
void eachField(Request& request, Each each) {
    each(request.url), each(request.origin), each(request.tls), each(request.body), each(request.contentType);
    each(request.user), each(request.password), each(request.systemLogin);
    each(request.proxy), each(request.proxyUser), each(request.proxyPassword), each(request.allowed);
    each(request.roots), each(request.maxSize), each(request.maxValues);
    each(request.connectTime), each(request.totalTime), each(request.stallTime);
}

}  // namespace

SecretBytes encodeRequest(const FetchRequest& request) {
    FieldWriter fields, whole;
    eachField(request, [&](const auto& field) { fields.put(field); });
    whole.put(ByteView(fields.out));
    return std::move(whole.out);
}

std::optional<FetchRequest> decodeRequest(ByteView octets) {
    FieldReader fields(octets);
    FetchRequest request;
    eachField(request, [&](auto& field) { fields.get(field); });
    if (!fields.atEnd() || request.origin > UrlOrigin::Redirect || request.tls > FetchTls::StartTls)
        return std::nullopt;
    return request;
}

Bytes encodeFrame(FrameKind kind, ByteView octets) {
    Bytes frame(kFrameHeader);
    frame[0] = static_cast<uint8_t>(kind);
    storeLe(&frame[1], static_cast<uint32_t>(octets.size()));
    frame.insert(frame.end(), octets.begin(), octets.end());
    return frame;
}

Bytes encodeEnd(const FetchResult& result) {
    FieldWriter fields;
    fields.put(result.outcome);
    constexpr size_t kLongest = 4096;
    fields.put(result.cause.substr(0, kLongest));
    fields.put(result.url.substr(0, kLongest));
    return encodeFrame(FrameKind::End, fields.out);
}

bool FrameReader::take(FrameKind kind, ByteView octets) {
    switch (kind) {
        case FrameKind::Value:
            if (valuesLeft_ == 0) return false;
            --valuesLeft_;
            result_.values.emplace_back();
            return octets.empty();
        case FrameKind::Body: {
            if (result_.values.empty() || octets.size() > left_) return false;
            left_ -= octets.size();
            received_ += octets.size();
            Bytes& value = result_.values.back();
            value.insert(value.end(), octets.begin(), octets.end());
            return true;
        }
        case FrameKind::End: {
            FieldReader fields(octets);
            fields.get(result_.outcome);
            fields.get(result_.cause);
            fields.get(result_.url);
            ended_ = fields.atEnd() && result_.outcome <= FetchOutcome::HelperDied;
            return ended_;
        }
    }
    return false;
}

bool FrameReader::feed(ByteView octets) {
    pending_.insert(pending_.end(), octets.begin(), octets.end());
    ByteView rest = pending_;
    bool good = !ended_;
    while (good && !ended_ && rest.size() >= kFrameHeader) {
        const size_t size = loadLe<uint32_t>(&rest[1]);
        good = size <= kMaxFrame;
        if (!good || rest.size() - kFrameHeader < size) break;
        good = take(static_cast<FrameKind>(rest[0]), rest.subspan(kFrameHeader, size));
        rest = rest.subspan(kFrameHeader + size);
    }
    pending_.erase(pending_.begin(), pending_.end() - static_cast<std::ptrdiff_t>(rest.size()));
    return good;
}

}  // namespace crv
