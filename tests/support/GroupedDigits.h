#pragma once

#include <iostream>
#include <locale>
#include <string>

/// While this object lives, the application has set a locale that writes numbers as no log line may look: 1.234.567.
class GroupedDigits
{
public:
    GroupedDigits()
        : grouped(std::locale::classic(), new Punctuation), before(std::locale::global(grouped)),
          ofOutput(std::cout.imbue(grouped)), ofErrors(std::cerr.imbue(grouped))
    {
    }
    ~GroupedDigits()
    {
        std::cerr.imbue(ofErrors);
        std::cout.imbue(ofOutput);
        std::locale::global(before);
    }
    GroupedDigits(const GroupedDigits&) = delete;
    GroupedDigits& operator=(const GroupedDigits&) = delete;

private:
    class Punctuation : public std::numpunct<char>
    {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };

    const std::locale grouped;
    const std::locale before;
    const std::locale ofOutput;
    const std::locale ofErrors;
};
