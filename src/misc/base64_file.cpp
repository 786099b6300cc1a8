#include "misc/base64_file.h"

#include "misc/memory_file.h"

namespace crv {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr size_t kLineOctets = 48;     // 64 letters
constexpr size_t kLongestLine = 1024;  // of a BEGIN or END line
constexpr std::string_view kDashes = "-----";
constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kEndLine = "-----END ";

constexpr auto kValues = [] {
    std::array<int8_t, 256> values{};
    values.fill(-1);
    for (size_t i = 0; i < kAlphabet.size(); ++i) values[static_cast<uint8_t>(kAlphabet[i])] = static_cast<int8_t>(i);
    return values;
}();

bool isSpace(int octet) {
    return octet == ' ' || octet == '\n' || octet == '\r' || octet == '\t';
}

std::string encode(ByteView octets) {
    std::string text((octets.size() + 2) / 3 * 4, '=');
    char* out = text.data();
    const auto put = [&](uint32_t group, size_t digits) {
        for (size_t i = 0; i < digits; ++i) *out++ = kAlphabet[group >> (18 - 6 * i) & 63];
    };
    size_t i = 0;
    for (; i + 3 <= octets.size(); i += 3)
        put(static_cast<uint32_t>(octets[i]) << 16 | static_cast<uint32_t>(octets[i + 1]) << 8 | octets[i + 2], 4);
    const size_t left = octets.size() - i;
    if (left == 1) put(static_cast<uint32_t>(octets[i]) << 16, 2);
    if (left == 2) put(static_cast<uint32_t>(octets[i]) << 16 | static_cast<uint32_t>(octets[i + 1]) << 8, 3);
    return text;
}

std::optional<Bytes> readAll(Base64Reader& reader) {
    Bytes octets;
    int octet = reader.get();
    for (; octet >= 0; octet = reader.get()) octets.push_back(static_cast<uint8_t>(octet));
    if (octet == GenericFile::kFailed) return std::nullopt;
    return octets;
}

/// The label of an armour line that begins with `start`; nothing for another line.
std::optional<std::string> labelOf(std::string_view line, std::string_view start) {
    while (!line.empty() && isSpace(line.back())) line.remove_suffix(1);
    if (!line.starts_with(start) || !line.ends_with(kDashes) || line.size() < start.size() + kDashes.size())
        return std::nullopt;
    return std::string(line.substr(start.size(), line.size() - start.size() - kDashes.size()));
}

}  // namespace

bool Base64Reader::readLine(std::string& line) {
    line.clear();
    for (int octet = source_.get(); octet != '\n'; octet = source_.get()) {
        if (octet < 0) return octet == kEnd && !line.empty();
        if (line.size() < kLongestLine) line += static_cast<char>(octet);
    }
    return true;
}

bool Base64Reader::findBlock() {
    begun_ = true;
    std::string line;
    while (readLine(line)) {
        if (auto label = labelOf(line, kBegin)) {
            label_ = *label;
            return true;
        }
    }
    ended_ = true;
    return false;
}

bool Base64Reader::takeEndLine() {
    std::string line;
    return readLine(line) && labelOf(line, kEndLine) == label_;
}

Base64Reader::Letter Base64Reader::nextLetter(uint8_t& value) {
    int octet = source_.peek();
    while (isSpace(octet)) {
        source_.consume(1);
        octet = source_.peek();
    }
    if (octet == kEnd) return armour_ == Base64Armour::None ? Letter::End : Letter::Wrong;
    if (octet < 0) return Letter::Wrong;
    if (octet == '-' && armour_ == Base64Armour::Pem) return takeEndLine() ? Letter::End : Letter::Wrong;
    source_.consume(1);
    if (octet == '=') return Letter::Padding;
    const int letter = kValues[static_cast<size_t>(octet)];
    value = static_cast<uint8_t>(letter);
    return letter < 0 ? Letter::Wrong : Letter::Value;
}

/// Decodes four letters. Returns the number of octets, 0 at the end, -1 when the text is malformed.
int Base64Reader::decodeGroup(std::array<uint8_t, 3>& out) {
    uint32_t group = 0;
    int letters = 0;
    for (int i = 0; i < 4; ++i) {
        uint8_t value = 0;
        const Letter letter = nextLetter(value);
        if (letter == Letter::End) return i == 0 ? 0 : -1;
        const bool afterPadding = letters < i;
        if (letter == Letter::Wrong || (letter == Letter::Padding ? i < 2 : afterPadding)) return -1;
        if (letter == Letter::Value) ++letters;
        group = group << 6 | value;
    }
    out = {static_cast<uint8_t>(group >> 16), static_cast<uint8_t>(group >> 8), static_cast<uint8_t>(group)};
    if (letters < 4) {
        uint8_t value = 0;
        ended_ = true;
        if (nextLetter(value) != Letter::End) return -1;
    }
    return letters - 1;
}

long Base64Reader::readSome(uint8_t* out, size_t count) {
    if (!begun_ && armour_ == Base64Armour::Pem && !findBlock()) return -1;
    long done = 0;
    while (!ended_ && static_cast<size_t>(done) + 3 <= count) {
        std::array<uint8_t, 3> group{};
        const int octets = decodeGroup(group);
        if (octets < 0) return -1;
        if (octets == 0) ended_ = true;
        for (int i = 0; i < octets; ++i) out[done++] = group[static_cast<size_t>(i)];
    }
    return done;
}

bool Base64Writer::begin() {
    if (begun_) return true;
    begun_ = true;
    return label_.empty() || target_.write(asBytes(std::string(kBegin) + label_ + std::string(kDashes) + "\n"));
}

bool Base64Writer::write(ByteView octets) {
    if (!begin()) return false;
    for (const uint8_t octet : octets) {
        line_.push_back(octet);
        if (line_.size() < kLineOctets) continue;
        if (!target_.write(asBytes(encode(line_) + "\n"))) return false;
        line_.clear();
    }
    return true;
}

bool Base64Writer::finish() {
    if (!begin() || (!line_.empty() && !target_.write(asBytes(encode(line_) + "\n")))) return false;
    line_.clear();
    return label_.empty() || target_.write(asBytes(std::string(kEndLine) + label_ + std::string(kDashes) + "\n"));
}

std::string toBase64(ByteView octets) {
    return encode(octets);
}

std::optional<Bytes> fromBase64(std::string_view text) {
    MemoryFile source(asBytes(text));
    Base64Reader reader(source);
    return readAll(reader);
}

std::string toPem(std::string_view label, ByteView octets) {
    MemoryFile target;
    Base64Writer writer(target, std::string(label));
    static_cast<void>(writer.write(octets) && writer.finish());  // memory takes every octet
    return std::string(asText(target.written()));
}

std::optional<SecretBytes> fromPem(std::string_view text, std::string* label) {
    MemoryFile source(asBytes(text));
    Base64Reader reader(source, Base64Armour::Pem);
    if (!reader.findBlock()) return std::nullopt;
    if (label) *label = reader.label();
    SecretBytes octets;
    return readAll(reader, octets) ? std::optional(std::move(octets)) : std::nullopt;
}

}  // namespace crv
