// front/value_checks.cpp - the built-in checks of field values and the type names that get them.
#include "front/value_checks.hpp"

#include <array>

namespace navo::front {
namespace {

bool all_digits(std::string_view value) noexcept
{
    if (value.empty())
        return false;
    for (const char c : value) {
        if (c < '0' || c > '9')
            return false;
    }
    return true;
}

int digit(std::string_view value, std::size_t at) noexcept
{
    return value[at] - '0';
}

int number(std::string_view value, std::size_t at, std::size_t count) noexcept
{
    int n = 0;
    for (std::size_t i = 0; i < count; i++)
        n = n * 10 + digit(value, at + i);
    return n;
}

bool leap(int year) noexcept
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int days_in(int month, int year) noexcept
{
    static constexpr std::array<int, 12> days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && leap(year) ? 29 : days[static_cast<std::size_t>(month - 1)];
}

// Weighted sum of the first weights.size() digits.
template <std::size_t N>
int weighted(std::string_view value, const std::array<int, N> &weights) noexcept
{
    int sum = 0;
    for (std::size_t i = 0; i < N; i++)
        sum += digit(value, i) * weights[i];
    return sum;
}

bool real_date(int day, int month, int year) noexcept
{
    return year >= 1 && month >= 1 && month <= 12 && day >= 1 && day <= days_in(month, year);
}

// The century a PESEL's month carries: 1900 for 01-12, 2000 for 21-32, 2100, 2200, and 1800
// for 81-92; 0 for a month outside those.
int pesel_century(int month) noexcept
{
    switch (month / 20) {
    case 0: return 1900;
    case 1: return 2000;
    case 2: return 2100;
    case 3: return 2200;
    case 4: return 1800;
    default: return 0;
    }
}

// What a check gives for a value it accepts.
constexpr std::string_view accepted = "";

}  // namespace

std::string_view check_pesel(std::string_view value) noexcept
{
    if (value.size() != 11 || !all_digits(value))
        return "a PESEL has 11 digits";
    static constexpr std::array<int, 10> weights{1, 3, 7, 9, 1, 3, 7, 9, 1, 3};
    if ((10 - weighted(value, weights) % 10) % 10 != digit(value, 10))
        return "the PESEL's check digit does not match";
    char date[8];
    if (!pesel_birth_date(value, date))
        return "the PESEL encodes no real birth date";
    return accepted;
}

bool pesel_birth_date(std::string_view pesel, char (&out)[8]) noexcept
{
    if (pesel.size() != 11 || !all_digits(pesel))
        return false;
    const int encodedMonth = number(pesel, 2, 2);
    const int century = pesel_century(encodedMonth);
    const int month = encodedMonth % 20;
    const int year = century + number(pesel, 0, 2);
    const int day = number(pesel, 4, 2);
    if (century == 0 || !real_date(day, month, year))
        return false;
    const int parts[3] = {day, month, year};
    out[0] = static_cast<char>('0' + parts[0] / 10);
    out[1] = static_cast<char>('0' + parts[0] % 10);
    out[2] = static_cast<char>('0' + parts[1] / 10);
    out[3] = static_cast<char>('0' + parts[1] % 10);
    out[4] = static_cast<char>('0' + parts[2] / 1000);
    out[5] = static_cast<char>('0' + parts[2] / 100 % 10);
    out[6] = static_cast<char>('0' + parts[2] / 10 % 10);
    out[7] = static_cast<char>('0' + parts[2] % 10);
    return true;
}

std::string_view check_nip(std::string_view value) noexcept
{
    if (value.size() != 10 || !all_digits(value))
        return "a NIP has 10 digits";
    static constexpr std::array<int, 9> weights{6, 5, 7, 2, 3, 4, 5, 6, 7};
    const int remainder = weighted(value, weights) % 11;
    if (remainder == 10 || remainder != digit(value, 9))
        return "the NIP's check digit does not match";
    return accepted;
}

std::string_view check_regon(std::string_view value) noexcept
{
    if ((value.size() != 9 && value.size() != 14) || !all_digits(value))
        return "a REGON has 9 or 14 digits";
    int remainder = 0;
    if (value.size() == 9) {
        static constexpr std::array<int, 8> weights{8, 9, 2, 3, 4, 5, 6, 7};
        remainder = weighted(value, weights) % 11;
    } else {
        static constexpr std::array<int, 13> weights{2, 4, 8, 5, 0, 9, 7, 3, 6, 1, 2, 4, 8};
        remainder = weighted(value, weights) % 11;
    }
    if (remainder % 10 != digit(value, value.size() - 1))
        return "the REGON's check digit does not match";
    return accepted;
}

std::string_view check_date(std::string_view value) noexcept
{
    if (value.size() != 8 || !all_digits(value))
        return "a date of the form DDMMRRRR has 8 digits";
    if (!real_date(number(value, 0, 2), number(value, 2, 2), number(value, 4, 4)))
        return "no such day in the calendar";
    return accepted;
}

std::string_view check_day_month(std::string_view value) noexcept
{
    if (value.size() != 4 || !all_digits(value))
        return "a day of the form DDMM has 4 digits";
    // Without a year, 29 February is a day the month can have.
    if (!real_date(number(value, 0, 2), number(value, 2, 2), 2000))
        return "no such day in the calendar";
    return accepted;
}

std::string_view check_date_range(std::string_view value) noexcept
{
    // Two dates side by side; a half left blank is an open end. The value is trimmed at its end,
    // so a missing second half is blank.
    const std::string_view from = value.substr(0, 8);
    const std::string_view to = value.size() > 8 ? value.substr(8) : std::string_view{};
    const auto blank = [](std::string_view half) { return half.find_first_not_of(' ') == std::string_view::npos; };
    if (!blank(from) && !check_date(from).empty())
        return "the range's first date is no real date of the form DDMMRRRR";
    if (!blank(to) && !check_date(to).empty())
        return "the range's second date is no real date of the form DDMMRRRR";
    return accepted;
}

std::string_view check_report_id(std::string_view value) noexcept
{
    if (value.size() != 8 || !all_digits(value))
        return "an identifier of the form NNMMRRRR has 8 digits";
    const int month = number(value, 2, 2);
    if (month < 1 || month > 12)
        return "the identifier's month is not 01 to 12";
    return accepted;
}

std::string_view check_digits(std::string_view value) noexcept
{
    return all_digits(value) ? accepted : "holds characters other than digits";
}

std::string_view check_postal_code(std::string_view value) noexcept
{
    return value.size() == 5 && all_digits(value) ? accepted : "a postal code has 5 digits";
}

std::string_view check_email(std::string_view value) noexcept
{
    const std::size_t at = value.find('@');
    if (at == std::string_view::npos || at == 0 || at + 1 == value.size() ||
        value.find('@', at + 1) != std::string_view::npos || value.find(' ') != std::string_view::npos)
        return "an e-mail address has one '@' between two parts and no blank";
    return accepted;
}

long day_number(std::string_view date) noexcept
{
    if (!check_date(date).empty())
        return -1;
    // Days from 1 March of year 0 (proleptic Gregorian), which puts the leap day last.
    long year = number(date, 4, 4);
    long month = number(date, 2, 2);
    const long day = number(date, 0, 2);
    if (month < 3) {
        year--;
        month += 12;
    }
    return 365 * year + year / 4 - year / 100 + year / 400 + (153 * (month - 3) + 2) / 5 + day - 1;
}

namespace {

constexpr std::array<NamedCheck, 11> named_checks{{
    {"pesel", check_pesel},
    {"nip", check_nip},
    {"regon", check_regon},
    {"date", check_date},
    {"day-month", check_day_month},
    {"date-range", check_date_range},
    {"report-id", check_report_id},
    {"digits", check_digits},
    {"postal-code", check_postal_code},
    {"email", check_email},
    {"none", nullptr},
}};

struct TypeCheck {
    std::string_view type;
    std::string_view check;
};

// Every type name of the embedded definitions that has a rule; docs/content-checks.md gives the
// reasons for these and for every type left out. Type names compare exactly: t_NIP and T_NIP are
// two types of the two families of blocks.
constexpr std::array<TypeCheck, 24> type_checks{{
    {"t_PESEL", "pesel"},
    {"T_PESEL", "pesel"},
    {"t_NIP", "nip"},
    {"T_NIP", "nip"},
    {"t_REGON", "regon"},
    {"T_REGON", "regon"},
    {"t_data_DDMMRRRR", "date"},
    {"T_DATA_DDMMRRRR", "date"},
    {"t_data_DDMM", "day-month"},
    {"T_DATA_DDMM", "day-month"},
    {"t_zdata_DDMMRRR", "date-range"},
    {"t_identyfikator_NNMMRRRR", "report-id"},
    {"T_NNMMRRRR", "report-id"},
    {"t_identyfikator_NNRRRR", "digits"},
    {"t_liczba_2", "digits"},
    {"t_liczba_3", "digits"},
    {"t_liczba_4", "digits"},
    {"t_liczba_5", "digits"},
    {"t_liczba_6", "digits"},
    {"t_liczba_8", "digits"},
    {"T_LICZBA", "digits"},
    {"t_kod_pocztowy", "postal-code"},
    {"t_e-mail", "email"},
    {"T_EMAIL", "email"},
}};

}  // namespace

const NamedCheck *find_check(std::string_view name) noexcept
{
    for (const NamedCheck &named : named_checks) {
        if (named.name == name)
            return &named;
    }
    return nullptr;
}

const NamedCheck *check_of_type(std::string_view type) noexcept
{
    for (const TypeCheck &entry : type_checks) {
        if (entry.type == type)
            return find_check(entry.check);
    }
    return nullptr;
}

}  // namespace navo::front
