// How the steps run; the steps themselves are in ScriptSteps.cpp.

#include "tools/fault-check/Script.h"

namespace Kes::faulty {

namespace {

Script* theScript = nullptr;

// The codes that a failing slot may show up as.
const std::map<std::string, std::set<std::string>>& codesOf() {
    static const std::map<std::string, std::set<std::string>> codes = {
        {"open", {"DBOPENERR"}},         {"close", {"DBCLSERR"}},
        {"setVersion", {"ROLLFAIL"}},    {"beginClassUpdate", {"DELCLS"}},
        {"createClass", {"CRECLS"}},     {"endClassUpdate", {"DELCLS"}},
        {"createView", {"CREVW"}},       {"createAssociation", {"CREASS"}},
        {"newObjectID", {"OIDERR"}},     {"commit", {"COMFAIL", "ROLLFAIL"}},
        {"rollback", {"ROLLFAIL"}},      {"addLink", {"COMFAIL"}},
        {"insert", {"COMFAIL"}},         {"update", {"COMFAIL"}},
        {"removeLink", {"COMFAIL"}},     {"remove", {"COMFAIL"}},
        {"refresh", {"REFFAIL"}},        {"lock", {"LOCKFAIL"}},
        {"defineSelection", {"SELERR"}}, {"fetch", {"SELERR"}},
        {"cursor.next", {"SELERR"}},     {"cursor.getInstance", {"SELERR"}},
    };
    return codes;
}

// The slot that a message of the wrapping driver names, "" in another message.
std::string slotIn(const std::string& message) {
    const std::string begin = "faulty: call ";
    const std::size_t at = message.find(begin);
    if (at == std::string::npos)
        return "";
    const std::size_t comma = message.find(", ", at);
    const std::size_t end = message.find(',', comma + 1);
    if (comma == std::string::npos || end == std::string::npos)
        return "";
    return message.substr(comma + 2, end - comma - 2);
}

}  // namespace

Script::Script(const Target& itsTarget, const std::string& itsFaults, Handling itsHandling,
               std::vector<State>& known, Reporter itsReporter)
    : target(itsTarget),
      faults(itsFaults),
      handling(itsHandling),
      states(known),
      recording(known.empty()),
      report(std::move(itsReporter)) {
    theScript = this;
    Exception::setExceptionHandler(hearOne);
    if (recording)
        states.emplace_back();
}

Script::~Script() {
    forget();
    model.reset();
    theScript = nullptr;
}

void Script::hearOne(Exception& error) {
    if (theScript == nullptr)
        throw Exception(error);
    theScript->hear(error);
}

void Script::hear(Exception& error) {
    ++errors;
    fatal = fatal || error.getSeverity() == Exception::FATAL;
    lastMessage = error.getMessage();
    report((error.getSeverity() == Exception::FATAL ? "fatal " : "error ") +
           std::string(error.getCode()) + " " + lastMessage);
    const auto expected = codesOf().find(slotIn(lastMessage));
    if (expected != codesOf().end() && !expected->second.contains(error.getCode()))
        problem("a fault of " + expected->first + " is reported as " + error.getCode());
    if (handling == Throws)
        throw Exception(error);
}

void Script::problem(const std::string& words) {
    report(std::string("problem ") + doing + ": " + words);
}

void Script::check(bool holds, const char* words) {
    if (!holds)
        problem(words);
}

void Script::demandNoError() const {
    if (errors > 0)
        throw Failed();
}

void Script::forget() {
    held.clear();
    stale.clear();
}

bool Script::run() {
    for (std::size_t number = 1; number <= stepCount(); ++number)
        if (!perform(number))
            return false;
    return true;
}

bool Script::perform(std::size_t number) {
    const Step& step = steps()[number - 1];
    doing = step.name;
    report("begin " + std::to_string(number));
    if (!attempt(step)) {
        cleanUp(number);
        if (!attempt(step)) {
            cleanUp(number);
            return false;
        }
    }
    if (recording)
        states.push_back(readDatabase(target, schema));
    report("done " + std::to_string(number));
    checkMemory(states[number]);
    return true;
}

bool Script::attempt(const Step& step) {
    errors = 0;
    fatal = false;
    try {
        (this->*step.body)();
        return errors == 0 && !lost;
    } catch (const Failed&) {
        // Heard already.
    } catch (const Exception& raised) {
        if (errors == 0)
            problem(std::string("an error passed the handler by: ") + raised.getMessage());
    } catch (const std::exception& thrown) {
        // The driver's own exception may come through, and nothing else.
        if (slotIn(thrown.what()).empty())
            problem(std::string("an exception came out of the library: ") + thrown.what());
    }
    return false;
}

// What an application does after an error, and then the check that nothing of
// the step is left.
void Script::cleanUp(std::size_t number) {
    if (model != nullptr && model->isOpen() && !fatal && model->transactionStarted())
        try {
            model->rollback();
        } catch (const std::exception& thrown) {
            if (!fatal)
                problem(std::string("the rollback failed: ") + thrown.what());
        } catch (const Exception&) {
            // Fatal, and heard.
        }
    if (fatal || (model != nullptr && !model->isOpen())) {
        forget();
        model.reset();
    }
    checkMemory(states[number - 1]);
    if (number > 1)
        checkDatabase(states[number - 1]);
}

FaultModel& Script::session() {
    if (model == nullptr)
        open(schema);
    return *model;
}

void Script::open(int wanted) {
    model = std::make_unique<FaultModel>(wanted, target.suffix);
    model->traceSQLTo(trace);
    const std::string options =
        "faulty.driver=" + target.driver + ";" + faults + ";" + target.options;
    model->open("faulty", target.source.c_str(), target.password.c_str(), target.user.c_str(),
                options.c_str());
    demandNoError();
}

void Script::transaction(const std::function<void()>& body) {
    session().startTransaction();
    body();
    demandNoError();
    model->commit();
    demandNoError();
}

// The real driver has to refuse the transaction, and not for a fault.
void Script::expectRefusal(const std::function<void()>& body) {
    try {
        transaction(body);
        problem("was not refused");
        return;
    } catch (const Failed&) {
        // Judged below.
    } catch (const Exception&) {
        // The same.
    }
    // What is refused before the commit leaves the transaction to roll back.
    if (fatal || !slotIn(lastMessage).empty() || model->transactionStarted())
        throw Failed();
    errors = 0;
}

// Lets another session of the real driver do something.
void Script::elsewhere(const std::function<void(FaultModel&)>& body) {
    FaultModel other(schema, target.suffix);
    other.open(target.driver.c_str(), target.source.c_str(), target.password.c_str(),
               target.user.c_str(), target.options.c_str());
    demandNoError();
    other.startTransaction();
    body(other);
    other.commit();
    demandNoError();
    other.close();
}

void Script::checkMemory(const State& expected) {
    if (model == nullptr || !model->isOpen())
        return;
    State memory;
    for (auto entry = held.begin(); entry != held.end();) {
        Named* object = entry->second;
        const bool isGone = object == nullptr || object->getObjectID() == 0 || object->isRemoved();
        if (stale.contains(entry->first) || (isGone && !expected.contains(entry->first))) {
            ++entry;
        } else if (isGone) {
            problem(entry->first + " is gone from memory");
            entry = held.erase(entry);
        } else {
            memory[entry->first] = describe(object, false);
            ++entry;
        }
    }
    const std::string difference = compare(expected, memory, false);
    if (!difference.empty())
        problem("in memory, " + difference);
}

void Script::checkDatabase(const State& expected) {
    std::string difference;
    const int before = errors;
    try {
        difference = compare(expected, readDatabase(target, schema), true);
    } catch (const Exception& raised) {
        difference = raised.getMessage();
    }
    errors = before;
    if (!difference.empty())
        problem("in the database, " + difference);
}

}  // namespace Kes::faulty
