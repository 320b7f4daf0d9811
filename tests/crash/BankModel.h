// Accounts between which money moves, for processes that all want the same.

#pragma once

#include <string>

#include <kes/Kes.h>

namespace Kes::testing {

class Account : public Instance {
public:
    explicit Account(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleInt("number", number);
        h->handleLong("balance", balance);
    }

    int number = 0;
    long balance = 0;
};

class BankModel : public Model {
public:
    BankModel() : Model("bank", 1000) {}

    void openFile(const std::string& file, const std::string& openOptions = "") {
        open("sqlite", file.c_str(), "", "", openOptions.c_str());
    }

    Account* newAccount(int number, long balance) {
        auto* account = static_cast<Account*>(accountClass->newInstance());
        account->number = number;
        account->balance = balance;
        return account;
    }

    Account* find(int number) {
        SelectionOf<Account> found(accountClass);
        found.where(found["number"] == number);
        return found.nextValue();
    }

    Class* accountClass = nullptr;

protected:
    static Instance* make(Class* c) { return new Account(c); }

    void declareModel() override {
        setVersion(1);
        accountClass = addClass("Account", 1, make);
        accountClass->addIndex("number", true);
    }
};

}  // namespace Kes::testing
