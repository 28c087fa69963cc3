#include "tools/runner/csv.h"

#include <set>

namespace runner {
namespace {

// Largest data file a script may name: rows are held in memory per user.
constexpr size_t max_csv_bytes = 256u << 20;

}  // namespace

bool parse_csv(const std::string &file, const std::string &text, CsvTable &table,
               std::string &error) {
    table = CsvTable{};
    int line = 1;
    auto fail = [&](int at, const std::string &message) {
        error = file + ":" + std::to_string(at) + ": " + message;
        return false;
    };
    if (text.size() > max_csv_bytes)
        return fail(1, "larger than " + std::to_string(max_csv_bytes >> 20) + " MB");
    size_t i = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    const size_t n = text.size();
    std::vector<std::string> fields;
    bool have_header = false;
    while (i < n) {
        // One record, which may span lines inside quotes.
        const int record_line = line;
        fields.clear();
        std::string field;
        bool end_of_record = false;
        while (!end_of_record) {
            if (i < n && text[i] == '"') {
                const int quote_line = line;
                ++i;
                while (true) {
                    if (i >= n) return fail(quote_line, "quoted field without its closing quote");
                    char c = text[i++];
                    if (c == '"') {
                        if (i < n && text[i] == '"') {
                            field += '"';
                            ++i;
                            continue;
                        }
                        break;
                    }
                    if (c == '\n') ++line;
                    field += c;
                }
                if (i < n && text[i] != ',' && text[i] != '\n' &&
                    !(text[i] == '\r' && i + 1 < n && text[i + 1] == '\n') &&
                    !(text[i] == '\r' && i + 1 == n))
                    return fail(line, "text after a closing quote");
            } else {
                while (i < n && text[i] != ',' && text[i] != '\n') field += text[i++];
                if (!field.empty() && field.back() == '\r' && (i >= n || text[i] == '\n'))
                    field.pop_back();
                if (field.find('"') != std::string::npos)
                    return fail(line, "a quote inside an unquoted field");
            }
            fields.push_back(std::move(field));
            field.clear();
            if (i < n && text[i] == ',') {
                ++i;
                continue;
            }
            if (i < n && text[i] == '\r') ++i;
            if (i < n && text[i] == '\n') {
                ++i;
                ++line;
            }
            end_of_record = true;
        }
        if (fields.size() == 1 && fields[0].empty()) continue;  // a blank line
        if (!have_header) {
            std::set<std::string> seen;
            for (const std::string &name : fields) {
                if (name.empty()) return fail(record_line, "a column without a name in the header");
                if (!seen.insert(name).second)
                    return fail(record_line, "column '" + name + "' named twice in the header");
            }
            table.columns = fields;
            have_header = true;
            continue;
        }
        if (fields.size() != table.columns.size())
            return fail(record_line, "row has " + std::to_string(fields.size()) + " field" +
                                         (fields.size() == 1 ? "" : "s") + ", the header " +
                                         std::to_string(table.columns.size()));
        table.rows.push_back(fields);
    }
    if (!have_header) return fail(1, "empty: no header row");
    if (table.rows.empty()) return fail(line, "no rows after the header");
    return true;
}

bool DataSource::next(size_t random_row, size_t &row) {
    const size_t count = table_.rows.size();
    switch (mode_) {
        case RowMode::Random:
            row = random_row % count;
            break;
        case RowMode::Unique: {
            size_t index = static_cast<size_t>(vu_ - 1) + taken_ * static_cast<size_t>(users_);
            if (index >= count) return false;
            row = index;
            break;
        }
        case RowMode::Sequential:
            row = taken_ % count;
            break;
    }
    ++taken_;
    return true;
}

}  // namespace runner
