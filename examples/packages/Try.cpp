#include "packages/Try.h"

#include <iomanip>
#include <map>
#include <optional>
#include <stdexcept>

#include "packages/Digest.h"
#include "packages/Text.h"

namespace packages {

namespace {

constexpr const char* addedName = "kes-example";

std::string nameOf(const PackageModel& model, Kes::Instance* object) {
    const Kes::Class* const cls = object->getClass();
    if (cls == model.maintainers())
        return std::string(static_cast<Maintainer*>(object)->name);
    if (cls == model.sections())
        return std::string(static_cast<Section*>(object)->name);
    return std::string(static_cast<CatalogueEntry*>(object)->name);
}

// Writes what it hears as it comes, up to a limit for each commit.
class Announcer final : public Kes::Listener {
public:
    Announcer(PackageModel& heard, std::ostream& stream) : model(heard), out(stream) {
        for (Kes::Class* cls : model.getDeclaredClasses())
            cls->addListener(this);
        for (Kes::Association* association : model.getDeclaredAssociations())
            association->addListener(this);
    }
    ~Announcer() {
        for (Kes::Class* cls : model.getDeclaredClasses())
            cls->removeListener(this);
        for (Kes::Association* association : model.getDeclaredAssociations())
            association->removeListener(this);
    }
    Announcer(const Announcer&) = delete;
    Announcer& operator=(const Announcer&) = delete;

    void instanceAdded(const Kes::InstanceEvent& event) override { write("added", event); }
    void instanceChanged(const Kes::InstanceEvent& event) override { write("changed", event); }
    void instanceRemoved(const Kes::InstanceEvent& event) override { write("removed", event); }
    void associationAdded(const Kes::AssociationEvent& event) override { write("linked", event); }
    void associationRemoved(const Kes::AssociationEvent& event) override {
        write("unlinked", event);
    }

    /// Ends what was heard of one commit.
    void sumUp() {
        if (count > shown) {
            out << "    and " << grouped(count - shown) << " more; in all";
            const char* separator = " ";
            for (const auto& [what, number] : counts) {
                out << separator << grouped(number) << ' ' << what;
                separator = ", ";
            }
            out << '\n';
        }
        count = 0;
        counts.clear();
    }

private:
    static constexpr long shown = 20;

    void write(const char* what, const Kes::InstanceEvent& event) {
        write(what, event.getClass()->getName(), nameOf(model, event.getInstance()));
    }
    void write(const char* what, const Kes::AssociationEvent& event) {
        write(
            what, event.getAssociation()->getName(),
            nameOf(model, event.getOneInstance()) + ", " + nameOf(model, event.getOtherInstance()));
    }
    void write(const char* what, const char* kind, const std::string& names) {
        ++counts[what];
        if (++count <= shown)
            out << "    " << std::left << std::setw(9) << what << std::setw(15) << kind << names
                << '\n';
    }

    PackageModel& model;
    std::ostream& out;
    long count = 0;
    std::map<std::string, long> counts;  // by what happened
};

// Works on a model that was just opened, whose history holds nothing else.
class Session {
public:
    Session(PackageModel& opened, std::ostream& stream) : model(opened), out(stream) {
        announcer.emplace(model, out);
    }

    void run(const std::string& name);

private:
    Package* find(const std::string& name);
    Package* choose(const std::string& name);
    void play();
    void show(const char* title, const std::function<void()>& work);
    void describe(const std::string& name);
    void addDependent();
    void removeSubject();
    void takeAllBack();

    PackageModel& model;
    std::ostream& out;
    std::optional<Announcer> announcer;
    std::string subjectName;
    Kes::Pointer<Package> subject;
};

void Session::run(const std::string& name) {
    subject = choose(name);
    subjectName = std::string(subject->name);
    if (find(addedName) != nullptr)
        throw std::runtime_error("there is a package named " + inQuotes(addedName) + " already");
    try {
        play();
    } catch (...) {
        takeAllBack();
        throw;
    }
}

void Session::play() {
    describe(subjectName);
    show("A transaction: a new version, and a package that depends on it",
         [this] { addDependent(); });
    show("Undo", [this] { model.undo(); });
    show("Redo", [this] { model.redo(); });
    show("A second transaction: the package is removed", [this] { removeSubject(); });
    show("Undo", [this] { model.undo(); });
    show("Undo", [this] { model.undo(); });
}

void Session::takeAllBack() {
    announcer.reset();
    if (model.transactionStarted())
        model.rollback();
    while (model.isUndoable())
        model.undo();
}

// Asks the database, also for what is in memory.
Package* Session::find(const std::string& name) {
    Kes::SelectionOf<Package> named(model.packages());
    named.where(named["name"] == name.c_str());
    return named.nextValue();
}

Package* Session::choose(const std::string& name) {
    if (!name.empty()) {
        Package* const named = find(name);
        if (named == nullptr)
            throw std::runtime_error("there is no package named " + inQuotes(name));
        return named;
    }
    Kes::SelectionOf<Package> fewNeed(model.packages());
    fewNeed.where((fewNeed["dependents"] > 1) & (fewNeed["dependents"] < 6));
    fewNeed.orderBy(fewNeed["installedSize"], false);
    fewNeed.orderBy(fewNeed["name"]);
    Package* const chosen = fewNeed.nextValue();
    if (chosen == nullptr)
        throw std::runtime_error("no package has two to five others that depend on it; name one");
    return chosen;
}

void Session::describe(const std::string& name) {
    const Package* const package = find(name);
    out << "  " << name;
    if (package == nullptr)
        out << " is not there\n";
    else
        out << " has version " << package->version << " and is needed by "
            << grouped(static_cast<long>(package->neededBy.size())) << '\n';
}

void Session::show(const char* title, const std::function<void()>& work) {
    out << '\n' << title << std::endl;
    work();
    announcer->sumUp();
    describe(subjectName);
    describe(addedName);
}

void Session::addDependent() {
    model.startTransaction();
    auto* const added = static_cast<Package*>(model.packages()->newInstance());
    added->name = addedName;
    added->version = "1";
    added->architecture = "all";
    added->dependencies = 1;
    added->dependsOn.add(subject);
    added->maintainer = subject->maintainer;
    if (Maintainer* const maintainer = subject->maintainer) {
        maintainer->change();
        ++maintainer->packageCount;
    }
    subject->change();
    subject->version = subject->version + "+changed";
    ++subject->dependents;
    model.commit();
}

void Session::removeSubject() {
    model.startTransaction();
    for (CatalogueEntry* needed : subject->dependsOn) {
        needed->change();
        --needed->dependents;
    }
    if (Maintainer* const maintainer = subject->maintainer) {
        maintainer->change();
        --maintainer->packageCount;
    }
    for (CatalogueEntry* dependent : subject->neededBy) {
        dependent->change();
        --static_cast<Package*>(dependent)->dependencies;
    }
    subject->remove();
    model.commit();
}

}  // namespace

void tryChanges(const OpenSession& open, const std::string& name, std::ostream& out) {
    const Digest before = digestOf(*open());
    {
        const std::unique_ptr<PackageModel> model = open();
        Session(*model, out).run(name);
    }
    const Digest after = digestOf(*open());
    if (!(after == before))
        throw std::runtime_error("the catalogue is not as it was before");
    out << "\nThe " << grouped(after.objects) << " objects and " << grouped(after.links)
        << " links are as before.\n";
}

}  // namespace packages
