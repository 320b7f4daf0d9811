// One program that touches every slot of a driver, step by step.
//
// A step that fails has to leave memory and database as they were before; it is
// tried once more, as an application would. When it fails again the script
// ends. After an error that is fatal the script goes on with a new model, as a
// new process would.

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tools/fault-check/State.h"

namespace Kes::faulty {

class Script {
public:
    /// Ends a step: an error was raised, and its handler returned.
    struct Failed {};

    /// How errors reach the script: by exceptions, or noted by a handler that
    /// returns.
    enum Handling { Throws, Returns };

    /// Hears what happens: "begin NUMBER", "done NUMBER", "error CODE WORDS" or
    /// "fatal CODE WORDS", "problem WORDS".
    using Reporter = std::function<void(const std::string&)>;

    /// `itsFaults` are options of the wrapping driver. `known` holds the state
    /// after each step, as a run without faults left it; when it is empty the
    /// states are recorded there.
    Script(const Target& itsTarget, const std::string& itsFaults, Handling itsHandling,
           std::vector<State>& known, Reporter itsReporter);
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;
    ~Script();

    /// False when a step failed twice.
    bool run();

    /// Whether the script ended early because a fatal error took the history
    /// away that the next step needs.
    bool hasLostHistory() const { return lost; }

    static std::size_t stepCount();

    /// The step after which the second schema is stored.
    static std::size_t upgradeStep();

    /// Steps count from 1.
    static const char* nameOf(std::size_t step);

private:
    struct Step {
        const char* name;
        void (Script::*body)();
    };
    static const std::vector<Step>& steps();

    // --- the steps ---
    void begin();
    void hire();
    void equip();
    void change();
    void relink();
    void query();
    void navigate();
    void lockAnn();
    void refreshAnn();
    void somebodyChangesBob();
    void changeBobInVain();
    void refreshBob();
    void changeBob();
    void somebodyRemovesEve();
    void refreshEve();
    void addFirmTwice();
    void takeBack();
    void removeCid();
    void undoRemoval();
    void redoRemoval();
    void traceNoMore();
    void leave();
    void upgrade();
    void order();
    void queryAgain();
    void vanish();

    // --- how they run ---
    bool perform(std::size_t number);
    bool attempt(const Step& step);
    void cleanUp(std::size_t number);
    FaultModel& session();
    void open(int wanted);
    void transaction(const std::function<void()>& body);
    void expectRefusal(const std::function<void()>& body);
    void elsewhere(const std::function<void(FaultModel&)>& body);
    void checkMemory(const State& expected);
    void checkDatabase(const State& expected);
    void problem(const std::string& words);
    void check(bool holds, const char* words);
    void demandNoError() const;
    void forget();
    void hear(Exception& error);
    static void hearOne(Exception& error);

    template <class T>
    T* find(FaultModel& where, Class* cls, const char* called);
    template <class T>
    T* make(Class* cls, const char* called);
    static Instance* addOne(Class* cls);
    Worker* worker(const char* called);
    template <class M>
    void undoIn(M& changed);
    template <class M>
    void redoIn(M& changed);
    std::string namesOf(SelectionOf<Worker>& selection);

    Target target;
    std::string faults;
    Handling handling;
    std::vector<State>& states;  // after step 0, which does nothing, and so on
    bool recording;
    Reporter report;

    std::ostringstream trace;  // outlives the model
    std::unique_ptr<FaultModel> model;
    std::map<std::string, Pointer<Named>> held;  // by name
    std::set<std::string> stale;                 // changed by others since they were read
    const char* doing = "";
    int schema = 1;      // that is stored
    int errors = 0;      // raised in this attempt
    bool fatal = false;  // one of them
    bool lost = false;   // the history that a step needs went with its model
    std::string lastMessage;
};

}  // namespace Kes::faulty
