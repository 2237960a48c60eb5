#include "ConfJson.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace {

using json = nlohmann::ordered_json;

class Builder : public nlohmann::json_sax<json>
{
public:
    json root;
    std::string error;

    bool null() override { return place(json(nullptr)); }
    bool boolean(bool v) override { return place(json(v)); }
    bool number_integer(number_integer_t v) override { return place(json(v)); }
    bool number_unsigned(number_unsigned_t v) override { return place(json(v)); }
    bool number_float(number_float_t v, const string_t &) override { return place(json(v)); }
    bool string(string_t &v) override { return place(json(std::move(v))); }
    bool binary(binary_t &v) override { return place(json::binary(std::move(v))); }

    bool start_object(std::size_t) override { return open(json::object()); }
    bool key(string_t &k) override
    {
        _key = std::move(k);
        return true;
    }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(json::array()); }
    bool end_array() override { return close(); }

    bool parse_error(std::size_t, const std::string &, const nlohmann::detail::exception &e) override
    {
        error = e.what();
        return false;
    }

private:
    struct Frame
    {
        json *node;
        // Positions of the members read so far, to find repeated keys without a scan.
        std::unordered_map<std::string, std::size_t> positions;
    };
    // Pointers into parents stay valid: a container only grows while it is the innermost open
    // one, and then none of its children is open.
    std::vector<Frame> _stack;
    std::string _key;

    json *insert(json value)
    {
        if (_stack.empty()) {
            root = std::move(value);
            return &root;
        }
        Frame &top = _stack.back();
        if (top.node->is_array()) {
            auto &array = top.node->get_ref<json::array_t &>();
            array.push_back(std::move(value));
            return &array.back();
        }
        auto &object = top.node->get_ref<json::object_t &>();
        const auto [it, fresh] = top.positions.emplace(_key, object.size());
        if (!fresh) {
            json &existing = (object.begin() + static_cast<std::ptrdiff_t>(it->second))->second;
            existing = std::move(value);
            return &existing;
        }
        object.Container::emplace_back(_key, std::move(value));
        return &object.back().second;
    }

    bool place(json value)
    {
        insert(std::move(value));
        return true;
    }
    bool open(json container)
    {
        _stack.push_back(Frame{insert(std::move(container)), {}});
        return true;
    }
    bool close()
    {
        _stack.pop_back();
        return true;
    }
};

} // namespace

std::optional<nlohmann::ordered_json> parseOrderedJson(const QByteArray &text, QString *error)
{
    Builder builder;
    const bool ok =
        json::sax_parse(text.constBegin(), text.constEnd(), &builder, nlohmann::detail::input_format_t::json, true);
    if (!ok) {
        if (error)
            *error = QString::fromStdString(builder.error);
        return std::nullopt;
    }
    return std::move(builder.root);
}
