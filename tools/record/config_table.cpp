#include "record/config_table.h"

#include <toml++/toml.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "nearest_word.h"
#include "usage.h"

namespace plendix {

namespace fs = std::filesystem;

struct ConfigTable::Content {
    std::string file;
    std::shared_ptr<const toml::table> root;  // keeps `table` alive
    const toml::table* table;
    std::string name;  // as in the file, "[record]"; empty for the outermost
    std::vector<std::string> known{};

    bool knows(const std::string& key) const {
        return std::find(known.begin(), known.end(), key) != known.end();
    }
    std::string known_keys() const {
        std::string keys;
        for (const auto& key : known)
            keys += (keys.empty() ? "" : ", ") + key;
        return keys;
    }
    const toml::node* find(const std::string& key) {
        if (!knows(key)) known.push_back(key);
        return table->get(key);
    }
};

namespace {

constexpr std::size_t longest_file = 16U << 20U;

std::string read_text(const fs::path& file) {
    std::error_code ignored;
    if (fs::is_directory(file, ignored)) throw UsageError("'" + file.string() + "' is a folder, not a file");
    std::ifstream stream(file, std::ios::binary);
    std::string text(longest_file, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    if (stream) throw UsageError("'" + file.string() + "' has more than 16 MiB: it is no configuration");
    if (stream.eof()) return text;
    throw UsageError("'" + file.string() + "' cannot be read: " + error_text(errno));
}

const char* type_name(const toml::node& node) {
    switch (node.type()) {
        case toml::node_type::table:
            return "a table";
        case toml::node_type::array:
            return "an array";
        case toml::node_type::string:
            return "a text";
        case toml::node_type::integer:
        case toml::node_type::floating_point:
            return "a number";
        case toml::node_type::boolean:
            return "true or false";
        default:
            return "a date or time";
    }
}

/// The line of the file on which a line of a text stands.
unsigned line_within(const toml::node& node, unsigned text_line) {
    const auto& [begin, end, path] = node.source();
    const toml::value<std::string>* text = node.as_string();
    if (text == nullptr) return begin.line;
    const auto breaks = std::count(text->get().begin(), text->get().end(), '\n');
    if (end.line < begin.line + breaks) return begin.line;            // written as \n, all on one line
    const unsigned trimmed = end.line - begin.line > breaks ? 1 : 0;  // the one behind the quotes
    return begin.line + trimmed + text_line;
}

std::string written(double number) {
    std::ostringstream text;
    text << std::fixed << number;
    return text.str();
}

}  // namespace

ConfigTable ConfigTable::read(const fs::path& file) {
    try {
        const auto root = std::make_shared<const toml::table>(toml::parse(read_text(file)));
        return ConfigTable(std::make_shared<Content>(Content{file.string(), root, root.get(), ""}));
    } catch (const toml::parse_error& error) {
        throw UsageError(file.string() + ':' + std::to_string(error.source().begin.line) + ": " +
                         std::string(error.description()));
    }
}

std::optional<int> ConfigTable::number(const std::string& key, int least, int most) const {
    const toml::node* node = content_->find(key);
    if (node == nullptr) return std::nullopt;
    const auto* value = node->as_integer();
    if (value == nullptr) refuse(key, key + " is " + type_name(*node) + ", not a whole number");
    if (value->get() < least || value->get() > most) {
        refuse(key, key + ' ' + std::to_string(value->get()) + " is not from " + std::to_string(least) +
                        " to " + std::to_string(most));
    }
    return static_cast<int>(value->get());
}

std::optional<bool> ConfigTable::flag(const std::string& key) const {
    const toml::node* node = content_->find(key);
    if (node == nullptr) return std::nullopt;
    if (const auto* value = node->as_boolean()) return value->get();
    refuse(key, key + " is " + type_name(*node) + ", not true or false");
}

std::optional<std::string> ConfigTable::text(const std::string& key) const {
    const toml::node* node = content_->find(key);
    if (node == nullptr) return std::nullopt;
    if (const auto* value = node->as_string()) return value->get();
    refuse(key, key + " is " + type_name(*node) + ", not a text in quotes");
}

std::optional<std::string> ConfigTable::quantity(const std::string& key) const {
    const toml::node* node = content_->find(key);
    if (node != nullptr && node->is_integer()) return std::to_string(node->as_integer()->get());
    if (node != nullptr && node->is_floating_point()) return written(node->as_floating_point()->get());
    return text(key);
}

std::optional<ConfigTable> ConfigTable::table(const std::string& key) const {
    const toml::node* node = content_->find(key);
    if (node == nullptr) return std::nullopt;
    const toml::table* found = node->as_table();
    if (found == nullptr) refuse(key, key + " is " + type_name(*node) + ", not a table");
    const std::string name = found->is_inline() ? key : '[' + key + ']';
    return ConfigTable(std::make_shared<Content>(Content{content_->file, content_->root, found, name}));
}

std::vector<ConfigTable> ConfigTable::tables(const std::string& key) const {
    const toml::node* node = content_->find(key);
    std::vector<ConfigTable> found;
    if (node == nullptr) return found;
    const toml::array* array = node->as_array();
    const std::string name = "[[" + key + "]]";
    if (array == nullptr || !array->is_array_of_tables()) {
        refuse(key, key + " is " + type_name(*node) + ", not tables of the form " + name);
    }
    for (const toml::node& element : *array) {
        found.push_back(ConfigTable(
            std::make_shared<Content>(Content{content_->file, content_->root, element.as_table(), name})));
    }
    return found;
}

void ConfigTable::finish() const {
    for (const auto& [key, node] : *content_->table) {
        const std::string word(key.str());
        if (content_->knows(word)) continue;
        const std::string nearest = nearest_word(word, content_->known);
        refuse(word, "key '" + word + "' is not known" + (content_->name.empty() ? "" : " in ") +
                         content_->name +
                         (nearest.empty() ? ": known are " + content_->known_keys()
                                          : ": did you mean '" + nearest + "'?"));
    }
}

void ConfigTable::refuse(const std::string& key, const std::string& what,
                         std::optional<unsigned> text_line) const {
    const auto found = content_->table->find(key);
    unsigned line = content_->table->source().begin.line;
    if (found != content_->table->end()) {
        line = text_line ? line_within(found->second, *text_line) : found->first.source().begin.line;
    }
    throw UsageError(content_->file + ':' + std::to_string(line) + ": " + what);
}

}  // namespace plendix
