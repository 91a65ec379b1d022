#pragma once

#include <config/ValueText.h>

#include <string>
#include <string_view>

namespace config {

/// An object or array that is being written: puts the commas.
class JsonList
{
public:
    JsonList(std::string& out, char begin, char end) : text(out), closing(end) { text += begin; }
    ~JsonList() { text += closing; }
    JsonList(const JsonList&) = delete;
    JsonList& operator=(const JsonList&) = delete;

    void next()
    {
        text += isFirst ? "" : ",";
        isFirst = false;
    }
    void name(std::string_view key)
    {
        next();
        text.append(quotedText(key)).append(":");
    }

private:
    std::string& text;
    char closing;
    bool isFirst = true;
};

} // namespace config
