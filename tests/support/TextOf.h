#pragma once

#include <sstream>
#include <string>

/// What operator<< writes for a value.
template <typename Value>
std::string textOf(const Value& value)
{
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

/// What operator<< writes for a value on a stream whose every flag, width, fill and precision is unusual. Tells
/// also, behind a blank, whether the flags and the fill are the same afterwards.
template <typename Value>
std::string textOnOddStream(const Value& value)
{
    std::ostringstream stream;
    stream << std::hex << std::showbase << std::uppercase << std::showpos << std::left;
    stream.fill('*');
    stream.precision(3);
    const auto flags = stream.flags();
    stream.width(40);
    stream << value;
    const bool kept = stream.flags() == flags && stream.fill() == '*' && stream.precision() == 3;
    return stream.str() + (kept ? " kept" : " changed");
}
