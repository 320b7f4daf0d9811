// Interpreter of query objects: conditions and sort orders as SQL.

#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <kes/ConditionTranslator.h>
#include <kes/Selection.h>

#include "drivers/common/ModelMapping.h"
#include "drivers/common/QueryPlan.h"

namespace Kes::sql {

// So many rows of one class fit into memory; more are read one after the other.
inline constexpr std::size_t FewRows = 1024;

/// Renders a frozen selection. Values become parameters; names are checked
/// against the classes first and then quoted. Throws SqlFailure for a query
/// that cannot be answered.
class SqlTranslator final : public ConditionTranslator {
public:
    SqlTranslator(ModelMapping& itsTables, const Dialect& itsDialect)
        : tables(itsTables),
          dialect(itsDialect) {}

    std::shared_ptr<const QueryPlan> render(AssociatedClass& selection, const RowRange& range = {});

    /// The same without an order, for whoever counts.
    QueryPlan renderCondition(AssociatedClass& selection);

    void translate(Condition* left, Condition::LogicalOperator op, Condition* right) override;
    void translate(Role* role, Condition::AssociationOperator op,
                   AssociatedClass* associatedClass) override;
    void translate(Role* role, Condition::AssociationOperator op, Instance* instance) override;
    void translate(Attribute* attribute, int op, double value) override;
    void translate(Attribute* attribute, int op, float value) override;
    void translate(Attribute* attribute, int op, bool value) override;
    void translate(Attribute* attribute, int op, const Timestamp& value) override;
    void translate(Attribute* attribute, int op, const String& value) override;
    void translate(Attribute* attribute, int op, int value) override;
    void translate(Attribute* attribute, int op, unsigned int value) override;
    void translate(Attribute* attribute, int op, long value) override;
    void translate(Attribute* attribute, int op, unsigned long value) override;

private:
    // A rendered condition; equal texts with one parameter each can be listed.
    struct Piece {
        std::string text;
        std::vector<Parameter> parameters;
        std::size_t ids = 0;     // where it lists object ids and does nothing else
        std::size_t depth = 0;   // see Dialect::mostDepth()
        std::size_t joined = 0;  // see Dialect::mostJoined()
    };
    // Values that a column has one of, or none of.
    struct ListForm {
        std::string_view ending;  // of the comparison with one of them
        bool isOneOf;
    };
    // The class whose rows a condition is about, and their alias.
    struct Scope {
        TableMapping* table;
        std::string alias;
    };
    // What a role means in SQL.
    struct End {
        Association* association;
        std::string own;       // quoted column named by the role
        std::string opposite;  // quoted column named by the opposite role
        Class* partner;
        bool isOne;
        bool isManyToMany;
    };
    enum class Family { Number, Text, Time };

    Piece whole(AssociatedClass& selection);
    Piece piece(Condition* condition);
    [[noreturn]] void refuseDepth() const;
    std::vector<Piece> operands(Condition* left, Condition::LogicalOperator op, Condition* right);
    void list(std::vector<Piece>& pieces, const ListForm& form) const;
    Piece listOf(const std::vector<Piece>& pieces, std::size_t begin, std::size_t end,
                 const ListForm& form) const;
    static Piece join(std::vector<Piece>& pieces, const char* word);
    static Piece group(std::vector<Piece>& pieces, std::size_t begin, std::size_t end,
                       const char* word);
    std::string order(AssociatedClass& selection, std::vector<std::string>& names);
    static void cut(QueryPlan& plan, const RowRange& range);
    std::string column(const Attribute& attribute, Family family);
    void compare(const Attribute& attribute, int op, Family family, Parameter value);
    void compareReal(const Attribute& attribute, int op, double value);
    bool isReal(const Attribute& attribute) const;
    bool compareBetweenReals(const Attribute& attribute, int op, double near, int rounding);
    void compareUnsigned(const Attribute& attribute, int op, unsigned long value);
    End endOf(const Role& role);
    void requirePartner(const End& end, const Role& role, const Instance* instance) const;
    std::string apart(Piece& nested, const std::string& ids, const std::string& rest) const;
    std::string idColumn() const;
    std::string idIn(const std::string& subquery, bool equal) const;
    [[noreturn]] void refuse(const std::string& why) const;

    ModelMapping& tables;
    const Dialect& dialect;
    std::vector<Scope> scopes;
    Piece current;
    std::size_t level = 0;  // of the condition that is rendered, from 1

    // While operands are gathered: where combinations put their children.
    std::vector<Condition*>* gathering = nullptr;
    Condition::LogicalOperator gatheredOp = Condition::AND;
    bool gathered = false;
};

}  // namespace Kes::sql
