// Values of stored fields, as rows of a result have them.

#pragma once

#include <cstddef>
#include <variant>
#include <vector>

#include <kes/Blob.h>
#include <kes/Handler.h>
#include <kes/String.h>
#include <kes/Timestamp.h>

namespace Kes {

__extension__ using WideInteger = __int128;

/// A sum: one of the two is 0.
struct Total {
    WideInteger whole = 0;
    double real = 0;
};

/// Monostate for an empty one.
using Cell = std::variant<std::monostate, unsigned long, long, int, unsigned int, bool, float,
                          double, String, Timestamp, Blob, Total>;
using CellRow = std::vector<Cell>;

/// In the order of results: empty ones first, texts by their bytes. Cells of one
/// column; blobs and totals have none, and are all alike.
int compareCells(const Cell& a, const Cell& b);

/// What a number adds to a total.
Total totalOf(const Cell& number);

/// Raises no error: the digits are a driver's.
WideInteger integerOf(const String& digits);
std::string digitsOf(WideInteger number);

/// Takes the value that it is shown.
class CellTaker final : public EmptyHandler {
public:
    void handleULong(const String&, unsigned long& shown) override { value = shown; }
    void handleLong(const String&, long& shown) override { value = shown; }
    void handleString(const String&, String& shown, int) override { value = shown; }
    void handleInt(const String&, int& shown) override { value = shown; }
    void handleUInt(const String&, unsigned int& shown) override { value = shown; }
    void handleBool(const String&, bool& shown) override { value = shown; }
    void handleFloat(const String&, float& shown) override { value = shown; }
    void handleDouble(const String&, double& shown) override { value = shown; }
    void handleTimestamp(const String&, Timestamp& shown) override { value = shown; }
    void handleBlob(const String&, Blob& shown) override { value = shown; }

    Cell value;
};

/// Puts a value where one of its kind is shown.
class CellGiver final : public EmptyHandler {
public:
    explicit CellGiver(const Cell& itsValue) : value(itsValue) {}

    void handleULong(const String&, unsigned long& shown) override { give(shown); }
    void handleLong(const String&, long& shown) override { give(shown); }
    void handleString(const String&, String& shown, int) override { give(shown); }
    void handleInt(const String&, int& shown) override { give(shown); }
    void handleUInt(const String&, unsigned int& shown) override { give(shown); }
    void handleBool(const String&, bool& shown) override { give(shown); }
    void handleFloat(const String&, float& shown) override { give(shown); }
    void handleDouble(const String&, double& shown) override { give(shown); }
    void handleTimestamp(const String&, Timestamp& shown) override { give(shown); }
    void handleBlob(const String&, Blob& shown) override { give(shown); }

private:
    template <class T>
    void give(T& shown) const {
        if (const T* held = std::get_if<T>(&value))
            shown = *held;
    }

    const Cell& value;
};

}  // namespace Kes
