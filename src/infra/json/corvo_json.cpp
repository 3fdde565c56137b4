#include "infra/json/corvo_json.h"

#include <json/reader.h>
#include <json/writer.h>

#include "infra/json/corvo_json_reader.h"

namespace corvo::json {

bool parse(const char* begin, const char* end, Json::Value& out, std::string* error) {
    Json::Value root;
    if (PlainReader(begin, end).read(root)) {
        out.swap(root);
        return true;
    }
    root = Json::Value();
    Json::Reader reader;
    try {
        if (reader.parse(begin, end, root, /*collectComments=*/false)) {
            out.swap(root);
            return true;
        }
        if (error) *error = reader.getFormattedErrorMessages();
    } catch (const Json::Exception&) {
        // The reader recurses once per level and throws, rather than fails, if the nesting is too deep.
        if (error) *error = "* Values are nested too deeply.\n";
    }
    return false;
}

bool parse(const std::string& text, Json::Value& out, std::string* error) {
    return parse(text.data(), text.data() + text.size(), out, error);
}

std::string write_styled(const Json::Value& value) {
    return Json::StyledWriter().write(value);
}

}  // namespace corvo::json
