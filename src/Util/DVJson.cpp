#include "DVJson.h"

#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using json = nlohmann::ordered_json;

// Builds the tree from the parser's events. Every open container is held in its own frame
// until it closes and is then moved into its parent, so nothing already read is ever copied.
// Object members wait in a vector of pairs with a mutable key: that pair moves without
// throwing, so the vector moves (never copies) its members when it grows. (The ordered map's
// own pair has a const key, whose move may throw, and std::vector copies such elements
// on growth: a deep copy of every member read so far.)
class Builder : public nlohmann::json_sax<json>
{
public:
    explicit Builder(std::size_t maxDepth)
        : _maxDepth(maxDepth)
    {}

    json root;
    std::string error;
    bool tooDeep = false;

    bool null() override { return place(json(nullptr)); }
    bool boolean(bool v) override { return place(json(v)); }
    bool number_integer(number_integer_t v) override { return place(json(v)); }
    bool number_unsigned(number_unsigned_t v) override { return place(json(v)); }
    bool number_float(number_float_t v, const string_t &) override { return place(json(v)); }
    bool string(string_t &v) override { return place(json(std::move(v))); }
    bool binary(binary_t &v) override { return place(json::binary(std::move(v))); }

    bool start_object(std::size_t) override { return open(true); }
    bool key(string_t &k) override
    {
        _stack.back().key = std::move(k);
        return true;
    }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(false); }
    bool end_array() override { return close(); }

    bool parse_error(std::size_t, const std::string &, const nlohmann::detail::exception &e) override
    {
        error = e.what();
        return false;
    }

private:
    struct Frame
    {
        bool object = false;
        json::array_t items;
        std::vector<std::pair<std::string, json>> members;
        // Positions of the members read so far, to find repeated keys without a scan.
        std::unordered_map<std::string, std::size_t> positions;
        std::string key;
    };
    // Frames move (never copy) when the stack grows.
    static_assert(std::is_nothrow_move_constructible_v<Frame>);
    std::size_t _maxDepth;
    std::vector<Frame> _stack;

    bool place(json value)
    {
        if (_stack.empty()) {
            root = std::move(value);
            return true;
        }
        Frame &top = _stack.back();
        if (!top.object) {
            top.items.push_back(std::move(value));
            return true;
        }
        const auto [it, fresh] = top.positions.emplace(top.key, top.members.size());
        if (fresh)
            top.members.emplace_back(std::move(top.key), std::move(value));
        else
            top.members[it->second].second = std::move(value);
        return true;
    }
    bool open(bool object)
    {
        if (_stack.size() >= _maxDepth) {
            tooDeep = true;
            error = "nested deeper than " + std::to_string(_maxDepth) + " levels";
            return false;
        }
        _stack.emplace_back();
        _stack.back().object = object;
        return true;
    }
    bool close()
    {
        Frame frame = std::move(_stack.back());
        _stack.pop_back();
        json value;
        if (frame.object) {
            value = json::object();
            auto &object = value.get_ref<json::object_t &>();
            // Reserved to the exact size: the members move in without any regrowth.
            object.reserve(frame.members.size());
            for (auto &member : frame.members)
                object.Container::emplace_back(std::move(member.first), std::move(member.second));
        } else {
            value = json(std::move(frame.items));
        }
        return place(std::move(value));
    }
};

} // namespace

std::optional<nlohmann::ordered_json> DVJson::parse(const QByteArray &text, QString *error, std::size_t maxDepth)
{
    Builder builder(maxDepth);
    const bool ok =
        json::sax_parse(text.constBegin(), text.constEnd(), &builder, nlohmann::detail::input_format_t::json, true);
    if (!ok) {
        if (error)
            *error = QString::fromStdString(builder.error.empty() ? std::string("not JSON") : builder.error);
        return std::nullopt;
    }
    return std::move(builder.root);
}
