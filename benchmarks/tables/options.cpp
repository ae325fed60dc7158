#include "options.h"

#include "require.h"

#include <charconv>

namespace
{

int positiveNumber(const std::string &option, const std::string &text)
{
    int number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    require(error == std::errc() && stop == end && number > 0,
            option + " takes a number above 0, not '" + text + "'");
    return number;
}

} // namespace

Options readOptions(int argc, char *argv[])
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const auto value = [&]() -> std::string {
            require(++i < argc, option + " takes a value");
            return argv[i];
        };
        if (option == "--quick")
            options.quick = true;
        else if (option == "--rows")
            options.rows = positiveNumber(option, value());
        else if (option == "--rounds")
            options.rounds = positiveNumber(option, value());
        else if (option == "--only")
            options.only = value();
        else if (option[0] != '-' && options.directory.empty())
            options.directory = option;
        else
            require(false, "no use for '" + option + "'");
    }
    if (options.rounds == 0)
        options.rounds = options.quick ? 3 : 5;
    return options;
}
