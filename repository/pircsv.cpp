#include "repository/pircsv.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "orbelle/limits.h"
#include "repository/pirassert.h"

namespace {
const char *const cannot_open = "can't open .csv file";
const char *const invalid_record = "invalid csv record";

// Bytes read from a file at a time.
constexpr size_t read_chunk = 64 * 1024;

// Type keywords, indexed by the kind they stand for and tested in this order.
const char *const type_keywords[] = {
    "null",      "void",       "short",  "long",     "ushort",   "ulong",     "float",  "double",
    "boolean",   "char",       "octet",  "any",      "TypeCode", "Principal", "objref", "struct",
    "union",     "enum",       "string", "sequence", "array",    "alias",     "except", "longlong",
    "ulonglong", "longdouble", "wchar",  "wstring",  "fixed"};

int type_keyword_kind(const std::string &token) {
    for (size_t i = 0; i < sizeof type_keywords / sizeof type_keywords[0]; ++i)
        if (token == type_keywords[i]) return static_cast<int>(i);
    return -1;
}

bool is_white(unsigned char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

struct file_closer {
    void operator()(std::FILE *f) const { std::fclose(f); }
};

// Counts one level of nesting while it lives and refuses one too many.
class depth_guard {
public:
    explicit depth_guard(int &depth) : depth_(depth) {
        if (++depth_ > limits::max_csv_type_depth) {
            --depth_;
            throw PirException(invalid_record);
        }
    }
    ~depth_guard() { --depth_; }
    depth_guard(const depth_guard &) = delete;
    depth_guard &operator=(const depth_guard &) = delete;

private:
    int &depth_;
};
}  // namespace

void PirCsvFile::read(const char *filNam) {
    PIR_ASSERT(filNam != 0);
    std::unique_ptr<std::FILE, file_closer> file(std::fopen(filNam, "rb"));
    if (!file) throw PirException(cannot_open);
    std::vector<char> chunk(read_chunk);
    inComment_ = false;
    buffer_.clear();
    for (;;) {
        size_t n = std::fread(chunk.data(), 1, chunk.size(), file.get());
        if (n == 0) break;
        feed(chunk.data(), n);
    }
    finish();
}

void PirCsvFile::readText(const char *bytes, size_t size) {
    inComment_ = false;
    buffer_.clear();
    feed(bytes, size);
    finish();
}

void PirCsvFile::feed(const char *bytes, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        unsigned char c = static_cast<unsigned char>(bytes[i]);
        if (inComment_) {
            if (c == '\n') inComment_ = false;
        } else if (c == '#') {
            // A comment does not end the token: it goes on behind the comment.
            inComment_ = true;
        } else if (is_white(c)) {
            if (!buffer_.empty()) {
                tokens_.push_back(buffer_);
                buffer_.clear();
            }
        } else if (c != ',') {
            if (buffer_.size() >= limits::max_csv_token_length) throw PirException(invalid_record);
            buffer_.push_back(static_cast<char>(c));
        }
    }
}

void PirCsvFile::finish() {
    // End of file inside a comment stops the reading: a token still in the
    // buffer is dropped.
    if (!inComment_ && !buffer_.empty()) tokens_.push_back(buffer_);
    buffer_.clear();
    inComment_ = false;
}

// The field at pos. A file that ends inside a record fails here instead of
// reading past the last token.
const std::string &PirCsvFile::next(size_t &pos) const {
    if (pos >= tokens_.size()) throw PirException(invalid_record);
    return tokens_[pos++];
}

// A count, length or bound: optional sign, decimal digits up to the first
// other character, 0 without digits. A value that is negative or does not
// fit a signed 32-bit number is refused before anything loops on it.
uint32_t PirCsvFile::readNumber(size_t &pos) const {
    const std::string &token = next(pos);
    size_t i = 0;
    bool negative = false;
    if (i < token.size() && (token[i] == '+' || token[i] == '-')) negative = token[i++] == '-';
    uint64_t value = 0;
    for (; i < token.size() && token[i] >= '0' && token[i] <= '9'; ++i) {
        value = value * 10 + static_cast<uint64_t>(token[i] - '0');
        if (value > INT32_MAX) throw PirException(invalid_record);
    }
    if (negative && value != 0) throw PirException(invalid_record);
    return static_cast<uint32_t>(value);
}

// A member count: every member needs at least its name token, so a count
// beyond the tokens left can never be satisfied.
uint32_t PirCsvFile::readMemberCount(size_t &pos) const {
    uint32_t count = readNumber(pos);
    if (count > tokens_.size() - pos) throw PirException(invalid_record);
    return count;
}

void PirCsvFile::parse(PirIntNod *intNod) {
    PIR_ASSERT(intNod != 0);
    size_t pos = 0;
    while (pos < tokens_.size()) {
        const std::string &token = tokens_[pos];
        if (token == "att") {
            ++pos;
            auto node = std::make_unique<PirAttNod>();
            parseAtt(pos, node.get());
            intNod->append(node.release());
        } else if (token == "opr") {
            ++pos;
            auto node = std::make_unique<PirOprNod>();
            parseOpr(pos, node.get());
            intNod->append(node.release());
        } else {
            throw PirException(invalid_record);
        }
    }
}

void PirCsvFile::parseAtt(size_t &pos, PirAttNod *attNod) {
    PIR_ASSERT(attNod != 0);
    attNod->attId = next(pos);
    attNod->attNam = next(pos);
    attNod->attMod = next(pos) == "readonly" ? 1 : 0;
    parseChildType(pos, attNod);
}

void PirCsvFile::parseOpr(size_t &pos, PirOprNod *oprNod) {
    PIR_ASSERT(oprNod != 0);
    oprNod->oprId = next(pos);
    oprNod->oprNam = next(pos);
    oprNod->oprMod = next(pos) == "oneway" ? 1 : 0;
    // Sub-records until the end or the first token that opens none; the
    // interface loop decides on that token.
    while (pos < tokens_.size()) {
        const std::string &token = tokens_[pos];
        if (token == "res") {
            ++pos;
            auto node = std::make_unique<PirResNod>();
            parseRes(pos, node.get());
            oprNod->append(node.release());
        } else if (token == "par") {
            ++pos;
            auto node = std::make_unique<PirParNod>();
            parsePar(pos, node.get());
            oprNod->append(node.release());
        } else if (token == "exc") {
            ++pos;
            auto node = std::make_unique<PirExcNod>();
            parseExc(pos, node.get());
            oprNod->append(node.release());
        } else {
            return;
        }
    }
}

void PirCsvFile::parseRes(size_t &pos, PirResNod *resNod) {
    PIR_ASSERT(resNod != 0);
    parseChildType(pos, resNod);
}

void PirCsvFile::parsePar(size_t &pos, PirParNod *parNod) {
    PIR_ASSERT(parNod != 0);
    const std::string &direction = next(pos);
    parNod->parDir = direction == "out" ? 1 : direction == "inout" ? 2 : 0;
    parNod->parNam = next(pos);
    parseChildType(pos, parNod);
}

void PirCsvFile::parseExc(size_t &pos, PirExcNod *excNod) {
    PIR_ASSERT(excNod != 0);
    excNod->excNam = next(pos);
    excNod->excCnt = readMemberCount(pos);
    for (uint32_t i = 0; i < excNod->excCnt; ++i) parseChildType(pos, excNod);
}

void PirCsvFile::parseChildType(size_t &pos, PirNod *parent) {
    auto node = std::make_unique<PirTypNod>();
    parseTyp(pos, node.get());
    parent->append(node.release());
}

void PirCsvFile::parseTyp(size_t &pos, PirTypNod *typNod) {
    PIR_ASSERT(typNod != 0);
    depth_guard level(depth_);
    const std::string &name = next(pos);
    typNod->typNam = name == "." ? std::string() : name;
    if (pos >= tokens_.size()) throw PirException(invalid_record);
    int kind = type_keyword_kind(tokens_[pos]);
    // An unknown keyword stays where it is, for whoever reads next.
    if (kind < 0) return;
    ++pos;
    typNod->typKind = kind;
    switch (kind) {
        case tk_struct:
            typNod->typCnt = readMemberCount(pos);
            for (uint32_t i = 0; i < typNod->typCnt; ++i) parseChildType(pos, typNod);
            break;
        case tk_union: {
            auto discriminator = std::make_unique<PirTypNod>();
            parseTyp(pos, discriminator.get());
            discriminator->typNam = pirDiscriminatorName;
            typNod->append(discriminator.release());
            typNod->typCnt = readMemberCount(pos);
            for (uint32_t i = 0; i < typNod->typCnt; ++i) parseChildType(pos, typNod);
            break;
        }
        case tk_sequence:
            typNod->typBnd = readNumber(pos);
            parseChildType(pos, typNod);
            break;
        case tk_array: {
            typNod->typCnt = readNumber(pos);
            uint64_t outer = arrayProduct_;
            uint64_t product = outer * typNod->typCnt;
            if (product > limits::max_csv_array_elements) throw PirException(invalid_record);
            // Zero-length arrays hold nothing, whatever their element type.
            arrayProduct_ = product == 0 ? 1 : product;
            parseChildType(pos, typNod);
            arrayProduct_ = outer;
            break;
        }
        default:
            // Leaves, and aliases, which the format gives no aliased type.
            break;
    }
}
