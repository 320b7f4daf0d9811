// Chains of conditions, and lists of values that some of them are.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "drivers/common/ConditionDepth.h"
#include "drivers/common/SqlTranslator.h"

namespace Kes::sql {

namespace {

// Equal comparisons that OR joins become one list. Longer ones are cut: PostgreSQL and
// MariaDB take 65,535 parameters in a statement, SQLite 32,766.
constexpr std::size_t LongestList = 8192;

// Chains are joined in groups of so many: a database limits how high its tree of terms
// may be, and another one the parentheses.
constexpr std::size_t LongestGroup = 32;

}  // namespace

// Alternatives like `a = ? OR a = ?` become one list, and so does what excludes
// several values.
void SqlTranslator::list(std::vector<Piece>& pieces, const ListForm& form) const {
    const std::size_t longest = dialect.takesLists() ? FewRows : LongestList;
    std::vector<Piece> listed;
    for (std::size_t i = 0; i < pieces.size();) {
        std::size_t end = i + 1;
        const bool lists =
            pieces[i].parameters.size() == 1 && pieces[i].text.ends_with(form.ending);
        while (lists && end < pieces.size() && end - i < longest &&
               pieces[end].text == pieces[i].text)
            ++end;
        listed.push_back(end - i == 1 ? std::move(pieces[i]) : listOf(pieces, i, end, form));
        i = end;
    }
    pieces = std::move(listed);
}

// One parameter where the database takes a list of numbers. Elsewhere the list is
// filled up to a power of two, so that few statements serve all lengths.
SqlTranslator::Piece SqlTranslator::listOf(const std::vector<Piece>& pieces, std::size_t begin,
                                           std::size_t end, const ListForm& form) const {
    const Piece& first = pieces[begin];
    const std::string tested = first.text.substr(0, first.text.size() - form.ending.size());
    Piece list;
    list.ids = first.ids == 0 ? 0 : end - begin;
    list.depth = LeafDepth;
    if (dialect.takesLists() && std::holds_alternative<std::int64_t>(first.parameters.front())) {
        std::vector<std::int64_t> numbers;
        for (std::size_t i = begin; i < end; ++i)
            numbers.push_back(std::get<std::int64_t>(pieces[i].parameters.front()));
        list.text = dialect.inList(tested, form.isOneOf);
        list.parameters.emplace_back(std::move(numbers));
        return list;
    }
    for (std::size_t i = begin; i < end; ++i)
        list.parameters.push_back(pieces[i].parameters.front());
    list.parameters.resize(std::bit_ceil(end - begin), list.parameters.back());
    list.text = tested + (form.isOneOf ? " IN (?" : " NOT IN (?");
    for (std::size_t i = 1; i < list.parameters.size(); ++i)
        list.text += ",?";
    list.text += ")";
    return list;
}

// The deepest of a group comes first, where it costs least.
SqlTranslator::Piece SqlTranslator::join(std::vector<Piece>& pieces, const char* word) {
    while (pieces.size() > 1) {
        std::vector<Piece> groups;
        for (std::size_t i = 0; i < pieces.size(); i += LongestGroup)
            groups.push_back(group(pieces, i, std::min(i + LongestGroup, pieces.size()), word));
        pieces = std::move(groups);
    }
    return std::move(pieces.front());
}

SqlTranslator::Piece SqlTranslator::group(std::vector<Piece>& pieces, std::size_t begin,
                                          std::size_t end, const char* word) {
    if (end - begin == 1)
        return std::move(pieces[begin]);
    const auto first = pieces.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = pieces.begin() + static_cast<std::ptrdiff_t>(end);
    const auto deepest = std::max_element(
        first, last, [](const Piece& a, const Piece& b) { return a.depth < b.depth; });
    std::rotate(first, deepest, deepest + 1);
    Piece all;
    all.depth = first->depth + FirstDepth;
    for (auto each = first; each != last; ++each) {
        all.text += (each == first ? "(" : word) + each->text;
        all.joined += each->joined;
        std::move(each->parameters.begin(), each->parameters.end(),
                  std::back_inserter(all.parameters));
        if (each != first)
            all.depth = std::max(all.depth, each->depth + OtherDepth);
    }
    all.text += ")";
    return all;
}

}  // namespace Kes::sql
