#include <string>
#include <vector>

#include "tests/drivers/DriverTest.h"
#include "tests/drivers/FreeModel.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

// A schema whose classes or associations change their nature: the data stay, or
// the old schema does.
class StructureTest : public DriverTest {
protected:
    std::string refusal(int version, const FreeModel::Declare& declare) {
        FreeModel model(version, declare);
        return messageRaisedBy([&] { open(model); });
    }

    // An object of each of the classes; returns the first one's id.
    std::string make(const FreeModel::Declare& declare, std::vector<const char*> classes) {
        FreeModel model(1, declare);
        open(model);
        model.startTransaction();
        const std::string id = std::to_string(model.make(classes.front())->getObjectID());
        for (std::size_t i = 1; i < classes.size(); ++i)
            model.make(classes[i]);
        model.commit();
        return id;
    }

    int count(int version, const FreeModel::Declare& declare, const char* className) {
        FreeModel model(version, declare);
        open(model);
        Selection all(model.getClass(className));
        int found = 0;
        while (all.next())
            ++found;
        return found;
    }

    void expectVersion(const std::string& version) {
        EXPECT_EQ(version,
                  ask("SELECT max(version) FROM kes_versions WHERE kind IN ('MODEL', 'CLASS')"));
        EXPECT_EQ(version,
                  ask("SELECT min(version) FROM kes_versions WHERE kind IN ('MODEL', 'CLASS')"));
    }
};

FreeModel::Declare tree(bool isAbstract) {
    return [isAbstract](FreeModel& m) {
        Class* base = m.declareClass("Base", textField);
        base->setAbstract(isAbstract);
        m.declareClass("Sub", textField)->subclassOf(base);
    };
}

TEST_F(StructureTest, LetsNoClassBecomeAbstractThatHasObjects) {
    const std::string id = make(tree(false), {"Base", "Sub"});

    const std::string said = refusal(2, tree(true));

    EXPECT_TRUE(says(said, "the class Base has become abstract")) << said;
    EXPECT_TRUE(says(said, "its object " + id + " ")) << said;
    expectVersion("1");
    EXPECT_EQ(2, count(1, tree(false), "Base"));
}

TEST_F(StructureTest, LetsAClassBecomeAbstractWhoseObjectsAreGone) {
    make(tree(false), {"Base", "Sub"});
    run("DELETE FROM [Base]");

    EXPECT_EQ("", refusal(2, tree(true)));

    expectVersion("2");
    EXPECT_EQ(1, count(2, tree(true), "Base"));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Base_all]"));
}

TEST_F(StructureTest, LetsNoClassBecomeAbstractThatIsAllThatChanges) {
    const auto lone = [](bool isAbstract) {
        return [isAbstract](FreeModel& m) {
            m.declareClass("Lone", textField)->setAbstract(isAbstract);
            m.declareClass("Other", textField, 1);
        };
    };
    const std::string id = make(lone(false), {"Lone", "Other"});

    const std::string said = refusal(2, lone(true));

    EXPECT_TRUE(says(said, "the class Lone has become abstract")) << said;
    EXPECT_TRUE(says(said, "its object " + id + " ")) << said;
    expectVersion("1");
    EXPECT_EQ(1, count(1, lone(false), "Lone"));
}

// --- associations ---

FreeModel::Declare links(bool isManyToMany) {
    return [isManyToMany](FreeModel& m) {
        m.declareClass("Thing", [isManyToMany](Free& object, Handler* h) {
            if (isManyToMany)
                h->handleManyAssociated("Owns", "owner", &object.many2);
            else
                h->handleOneAssociated("Owns", "owner", &object.one, Association::Unlink);
            h->handleManyAssociated("Owns", "things", &object.many);
        });
    };
}

TEST_F(StructureTest, LetsNoAssociationOfOneBecomeOneOfManyThatHasLinks) {
    unsigned long owner = 0;
    {
        FreeModel model(1, links(false));
        open(model);
        model.startTransaction();
        Free* made = model.make("Thing");
        owner = made->getObjectID();
        made->many.add(model.make("Thing"));
        made->many.add(model.make("Thing"));
        model.commit();
    }

    const std::string said = refusal(2, links(true));

    EXPECT_TRUE(says(said, "the association Owns has another plurality")) << said;
    EXPECT_TRUE(says(said, "links the object " + std::to_string(owner))) << said;
    expectVersion("1");
    FreeModel model(1, links(false));
    open(model);
    const Pointer<Free> found(
        static_cast<Free*>(model.getInstance(owner, model.getClass("Thing"))));
    ASSERT_NE(nullptr, found.getInstance());
    EXPECT_EQ(2U, found->many.size());
}

TEST_F(StructureTest, LetsAnAssociationWithoutLinksBecomeOneOfMany) {
    make(links(false), {"Thing", "Thing"});

    EXPECT_EQ("", refusal(2, links(true)));

    expectVersion("2");
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Owns]"));
    EXPECT_EQ(2, count(2, links(true), "Thing"));
}

}  // namespace Kes::testing
