// Nesting is what the daemon's parser allows, 32 deep, so recursion ends soon.
#include "check/scan.h"

#include "check/text.h"
#include "core/json.h"

#include <algorithm>

namespace {

constexpr int DEEPEST = 32;

bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Takes the digits at the front of `text`; false without any.
bool take_digits(std::string_view *text) {
    const size_t count = std::min(text->size(), text->find_first_not_of("0123456789"));
    text->remove_prefix(count);
    return count > 0;
}

bool take(std::string_view *text, std::string_view any_of) {
    if (text->empty() || any_of.find(text->front()) == std::string_view::npos)
        return false;
    text->remove_prefix(1);
    return true;
}

bool is_json_number(std::string_view text) {
    (void)take(&text, "-");
    if (!take(&text, "0") && !take_digits(&text))
        return false;
    if (take(&text, ".") && !take_digits(&text))
        return false;
    if (take(&text, "eE")) {
        (void)take(&text, "+-");
        if (!take_digits(&text))
            return false;
    }
    return text.empty();
}

// A key as the parser reads it.
std::string decoded(std::string_view raw) {
    const std::string_view inside = raw.substr(1, raw.size() - 2);
    if (inside.find('\\') == std::string_view::npos)
        return std::string(inside);
    json_tokener *tokener = json_tokener_new();
    const json_ptr text(json_tokener_parse_ex(tokener, raw.data(), static_cast<int>(raw.size())));
    json_tokener_free(tokener);
    return text ? json_object_get_string(text.get()) : std::string();
}

class scanner {
public:
    explicit scanner(std::string_view text) : text_(text) {}

    std::optional<check_scan> scan() {
        if (!skip_space() || peek() != '{' || !scan_value(&result_.root, 1, true))
            return std::nullopt;
        done_ = true;
        if (!skip_space())
            return std::nullopt;
        if (at_ < text_.size())
            note(CHECK_MORE_TEXT, at_);
        return std::move(result_);
    }

private:
    // A zero byte stands for the end, as it does for the parser.
    [[nodiscard]] char peek() const {
        return at_ < text_.size() ? text_[at_] : '\0';
    }

    void note(check_oddity oddity, size_t at) {
        if (!result_.oddities[oddity])
            result_.oddities[oddity] = at;
    }

    bool skip_space();
    bool skip_comment();
    bool scan_value(check_value *value, int depth, bool keep);
    bool scan_object(check_value *value, int depth, bool keep);
    bool scan_member(check_value *object, int depth, bool keep);
    bool scan_array(check_value *value, int depth);
    bool scan_string();
    bool scan_number();
    bool scan_word(size_t begin);
    bool end_of_list(char end, size_t comma, bool *more);

    std::string_view text_;
    size_t at_ = 0;
    bool done_ = false; // with the object
    check_scan result_;
};

bool scanner::skip_space() {
    while (at_ < text_.size()) {
        if (is_space(text_[at_]))
            at_++;
        else if (text_[at_] != '/')
            break;
        else if (!skip_comment())
            return false;
    }
    return true;
}

bool scanner::skip_comment() {
    note(CHECK_COMMENT, at_);
    const char kind = at_ + 1 < text_.size() ? text_[at_ + 1] : '\0';
    if (kind != '*' && kind != '/')
        return false;
    const std::string_view end = kind == '*' ? "*/" : "\n";
    const size_t found = text_.find(end, at_ + 2);
    const size_t zero = text_.find('\0', at_ + 2);
    if (zero < found) {
        at_ = zero;
        return done_; // behind the object the parser takes a zero byte for the end, in a comment too
    }
    if (found == std::string_view::npos)
        return false;
    at_ = found + end.size();
    return true;
}

bool scanner::scan_value(check_value *value, int depth, bool keep) {
    value->begin = at_;
    bool done = false;
    if (peek() == '{')
        done = scan_object(value, depth, keep);
    else if (peek() == '[')
        done = scan_array(value, depth);
    else if (peek() == '"' || peek() == '\'')
        done = scan_string();
    else if (peek() == '-' || is_digit(peek()))
        done = scan_number();
    else
        done = scan_word(at_);
    value->end = at_;
    return done;
}

// Behind a value of a list: takes the comma, or the list's end. `comma` is where a comma stood before.
bool scanner::end_of_list(char end, size_t comma, bool *more) {
    if (!skip_space())
        return false;
    *more = peek() != end;
    if (*more)
        return true;
    if (comma != 0)
        note(CHECK_TRAILING_COMMA, comma);
    at_++;
    return true;
}

bool scanner::scan_object(check_value *value, int depth, bool keep) {
    at_++;
    size_t comma = 0;
    bool first = true;
    for (bool more = false; end_of_list('}', comma, &more);) {
        if (!more) {
            std::stable_sort(value->by_key.begin(), value->by_key.end(),
                             [&](uint32_t a, uint32_t b) { return value->members[a].key < value->members[b].key; });
            return true;
        }
        if ((!first && comma == 0) || depth > DEEPEST || !scan_member(value, depth, keep) || !skip_space())
            return false;
        first = false;
        comma = peek() == ',' ? at_++ : 0;
    }
    return false;
}

bool scanner::scan_member(check_value *object, int depth, bool keep) {
    check_member member;
    member.at = at_;
    if (!scan_string())
        return false;
    const std::string_view raw = text_.substr(member.at, at_ - member.at);
    if (!skip_space() || peek() != ':')
        return false;
    at_++;
    if (!skip_space() || !scan_value(&member.value, depth + 1, keep))
        return false;
    if (!keep)
        return true;
    member.key = decoded(raw);
    object->by_key.push_back(static_cast<uint32_t>(object->members.size()));
    object->members.push_back(std::move(member));
    return true;
}

bool scanner::scan_array(check_value *value, int depth) {
    at_++;
    size_t comma = 0;
    for (bool more = false; end_of_list(']', comma, &more);) {
        if (!more)
            return true;
        check_value element;
        if ((value->count > 0 && comma == 0) || depth > DEEPEST || !scan_value(&element, depth + 1, false) ||
            !skip_space())
            return false;
        value->count++;
        comma = peek() == ',' ? at_++ : 0;
    }
    return false;
}

bool scanner::scan_string() {
    const char quote = peek();
    if (quote != '"' && quote != '\'')
        return false;
    if (quote == '\'')
        note(CHECK_SINGLE_QUOTES, at_);
    for (at_++; at_ < text_.size() && text_[at_] != '\0';) {
        const auto byte = static_cast<unsigned char>(text_[at_]);
        if (text_[at_] == quote) {
            at_++;
            return true;
        }
        if (byte < 0x20)
            note(CHECK_CONTROL_CHARACTER, at_);
        const size_t length = check_utf8_length(text_.substr(at_, 4));
        if (length == 0)
            note(CHECK_BAD_UTF8, at_);
        at_ += byte == '\\' ? 2 : std::max<size_t>(length, 1);
    }
    return false;
}

bool scanner::scan_number() {
    const size_t begin = at_;
    if (peek() == '-' && at_ + 1 < text_.size() && is_letter(text_[at_ + 1])) {
        at_++;
        return scan_word(begin);
    }
    at_ = std::min(text_.size(), text_.find_first_not_of("0123456789+-.eE", at_));
    if (!is_json_number(text_.substr(begin, at_ - begin)))
        note(CHECK_NUMBER, begin);
    return true;
}

bool scanner::scan_word(size_t begin) {
    while (is_letter(peek()))
        at_++;
    const std::string_view word = text_.substr(begin, at_ - begin);
    if (word != "true" && word != "false" && word != "null")
        note(CHECK_WORD, begin);
    return !word.empty();
}

} // namespace

const check_member *check_value::find(std::string_view key) const {
    const auto after = std::upper_bound(by_key.begin(), by_key.end(), key,
                                        [&](std::string_view wanted, uint32_t i) { return wanted < members[i].key; });
    if (after == by_key.begin() || members[*(after - 1)].key != key)
        return nullptr;
    return &members[*(after - 1)];
}

std::optional<check_scan> check_scan_object(std::string_view text) {
    return scanner(text).scan();
}
