#include "drivers/common/TextForms.h"

#include <cstdint>
#include <cstring>

namespace Kes::sql {

namespace {

constexpr long DaySeconds = 86400;
constexpr std::uint64_t HighBits = 0x8080808080808080U;

// The bytes that follow a lead byte; 0 for a byte that cannot lead.
int followersOf(unsigned char lead) {
    if (lead >= 0xC2 && lead <= 0xDF)
        return 1;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 2;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 3;
    return 0;
}

// Excludes overlong forms, surrogates and what lies beyond the last plane.
bool isSecondByteAllowed(unsigned char lead, unsigned char second) {
    switch (lead) {
    case 0xE0: return second >= 0xA0;
    case 0xED: return second <= 0x9F;
    case 0xF0: return second >= 0x90;
    case 0xF4: return second <= 0x8F;
    default: return true;
    }
}

void writeDigits(char* at, int digits, int value) {
    for (int i = digits - 1; i >= 0; --i, value /= 10)
        at[i] = static_cast<char>('0' + value % 10);
}

// -1 when some character is no digit.
int readDigits(const char* at, int digits) {
    int value = 0;
    for (int i = 0; i < digits; ++i) {
        if (at[i] < '0' || at[i] > '9')
            return -1;
        value = value * 10 + (at[i] - '0');
    }
    return value;
}

}  // namespace

bool isValidUtf8(const char* text, std::size_t size) {
    std::size_t i = 0;
    while (i < size) {
        std::uint64_t eight = 0;
        if (size - i >= sizeof eight) {
            std::memcpy(&eight, text + i, sizeof eight);
            if ((eight & HighBits) == 0) {
                i += sizeof eight;
                continue;
            }
        }
        const auto lead = static_cast<unsigned char>(text[i++]);
        if (lead < 0x80)
            continue;
        const int followers = followersOf(lead);
        if (followers == 0 || size - i < static_cast<std::size_t>(followers) ||
            !isSecondByteAllowed(lead, static_cast<unsigned char>(text[i])))
            return false;
        for (int k = 0; k < followers; ++k)
            if ((static_cast<unsigned char>(text[i++]) & 0xC0) != 0x80)
                return false;
    }
    return true;
}

bool writeTimestamp(const Timestamp& value, char (&text)[TimestampSize + 1]) {
    static const long firstDay = Timestamp(1, 1, 1, 0, 0, 0).getAllDays();
    static const long lastDay = Timestamp(7899, 12, 31, 0, 0, 0).getAllDays();
    const long seconds = value.getAllSeconds();
    if (value.getAllDays() < firstDay || value.getAllDays() > lastDay || seconds < 0 ||
        seconds > DaySeconds)
        return false;
    std::memcpy(text, "0000-00-00 00:00:00", TimestampSize + 1);
    writeDigits(text, 4, value.getYear());
    writeDigits(text + 5, 2, value.getMonth());
    writeDigits(text + 8, 2, value.getDate());
    writeDigits(text + 11, 2, static_cast<int>(seconds / 3600));
    writeDigits(text + 14, 2, static_cast<int>(seconds % 3600 / 60));
    writeDigits(text + 17, 2, static_cast<int>(seconds % 60));
    return true;
}

bool readTimestamp(const char* text, std::size_t size, Timestamp& value) {
    if (size != TimestampSize || text[4] != '-' || text[7] != '-' || text[10] != ' ' ||
        text[13] != ':' || text[16] != ':')
        return false;
    const int year = readDigits(text, 4);
    const int month = readDigits(text + 5, 2);
    const int day = readDigits(text + 8, 2);
    const int hour = readDigits(text + 11, 2);
    const int minute = readDigits(text + 14, 2);
    const int second = readDigits(text + 17, 2);
    if (year < 1 || year > 7899 || month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 ||
        minute < 0 || second < 0 || hour > 24 || minute > 59 || second > 59)
        return false;
    value.setTime(year, month, day, hour, minute, second);
    return value.getMonth() == month && value.getAllSeconds() <= DaySeconds;
}

}  // namespace Kes::sql
