// Sessions that make and dissolve links of the same objects, in every order of
// their steps.

#include "tests/histories/Interleaving.h"

namespace Kes::testing {

class LinkInterleavingTest : public InterleavingTest {};

TEST_P(LinkInterleavingTest, LeavesNoReferenceToWhatIsRemoved) {
    unsigned long table = 0, guest = 0;
    const Steps linker{[&] {
                           sides[0].start();
                           sides[0].guest(guest)->refresh();
                       },
                       [&] { sides[0].guest(guest)->table = sides[0].table(table); },
                       [&] { sides[0].commit(); }};
    const Steps remover{[&] {
                            sides[1].start();
                            sides[1].guest(guest)->refresh();
                        },
                        [&] { sides[1].table(table)->remove(); }, [&] { sides[1].commit(); }};
    play(
        {linker, remover},
        [&] {
            table = makeTable(0);
            guest = make(&HistoryModel::guestClass);
        },
        [&] {
            expectNone("references to nobody",
                       "[Guest] g WHERE g.[table] IS NOT NULL AND NOT EXISTS (SELECT 1 FROM "
                       "[Table] t WHERE t.[KesObjectID] = g.[table])");
        });
}

TEST_P(LinkInterleavingTest, LeavesNoLinkToWhatIsRemoved) {
    unsigned long guests[2] = {};
    const Steps linker{[&] {
                           sides[0].start();
                           sides[0].guest(guests[0])->refresh();
                       },
                       [&] { sides[0].guest(guests[0])->friends.add(sides[0].guest(guests[1])); },
                       [&] { sides[0].commit(); }};
    const Steps remover{[&] {
                            sides[1].start();
                            sides[1].guest(guests[0])->refresh();
                        },
                        [&] { sides[1].guest(guests[1])->remove(); }, [&] { sides[1].commit(); }};
    play(
        {linker, remover},
        [&] {
            for (unsigned long& guest : guests)
                guest = make(&HistoryModel::guestClass);
        },
        [&] {
            for (const std::string role : {"[friends]", "[friendOf]"})
                expectNone("links to nobody",
                           "[Friendship] f WHERE NOT EXISTS (SELECT 1 FROM [Guest] g WHERE "
                           "g.[KesObjectID] = f." +
                               role + ")");
        });
}

TEST_P(LinkInterleavingTest, GivesASeatToOneGuest) {
    unsigned long seat = 0, guests[2] = {};
    const auto script = [&](Side& side, unsigned long& mine) {
        return Steps{[&] {
                         side.start();
                         side.guest(mine)->refresh();
                         side.seat(seat)->refresh();
                     },
                     [&] { side.guest(mine)->seat = side.seat(seat); }, [&] { side.commit(); }};
    };
    play(
        {script(sides[0], guests[0]), script(sides[1], guests[1])},
        [&] {
            seat = make(&HistoryModel::seatClass);
            for (unsigned long& guest : guests)
                guest = make(&HistoryModel::guestClass);
        },
        [&] {
            expectSoundSeats();
            const bool isTaken = !stored("[guest] FROM [Seat]", seat).empty();
            EXPECT_EQ(sides[0].committed || sides[1].committed, isTaken);
        });
}

TEST_P(LinkInterleavingTest, KeepsANewPairWhenTheFormerOneParts) {
    unsigned long seat = 0, former = 0, next = 0;
    const Steps taker{[&] {
                          sides[0].start();
                          sides[0].guest(next)->refresh();
                          sides[0].seat(seat)->refresh();
                      },
                      [&] { sides[0].guest(next)->seat = sides[0].seat(seat); },
                      [&] { sides[0].commit(); }};
    // As the message of a conflict demands: refresh, and once more.
    const auto part = [&](bool byRemoval) {
        const Pointer<Guest> guest(sides[1].guest(former));
        if (byRemoval)
            guest->remove();
        else
            guest->seat = nullptr;
    };
    for (const bool byRemoval : {false, true}) {
        const Steps leaver{[&] {
                               sides[1].start();
                               sides[1].guest(former)->refresh();
                           },
                           [&] { part(byRemoval); },
                           [&] {
                               try {
                                   sides[1].commit();
                               } catch (const Exception&) {
                                   sides[1].guest(former)->refresh();
                                   sides[1].start();
                                   part(byRemoval);
                                   sides[1].commit();
                               }
                           }};
        play(
            {taker, leaver},
            [&] {
                seat = make(&HistoryModel::seatClass);
                former = make(&HistoryModel::guestClass);
                next = make(&HistoryModel::guestClass);
                maker.startTransaction();
                static_cast<Guest*>(maker.getInstance(former, maker.guestClass))->seat =
                    static_cast<Seat*>(maker.getInstance(seat, maker.seatClass));
                maker.commit();
            },
            [&] {
                expectSoundSeats();
                if (sides[0].committed) {
                    EXPECT_EQ(std::to_string(next), stored("[guest] FROM [Seat]", seat));
                } else if (sides[1].committed) {
                    EXPECT_EQ("", stored("[guest] FROM [Seat]", seat));
                }
            });
    }
}

TEST_P(LinkInterleavingTest, MovesAMemberToOnePlace) {
    unsigned long guest = 0, tables[3] = {};
    const auto script = [&](Side& side, unsigned long& to) {
        return Steps{[&] {
                         side.start();
                         side.guest(guest)->refresh();
                     },
                     [&] {
                         side.table(to)->guests.add(side.guest(guest));
                         side.table(tables[2])->guests.remove(side.guest(guest));
                     },
                     [&] { side.commit(); }};
    };
    play(
        {script(sides[0], tables[0]), script(sides[1], tables[1])},
        [&] {
            for (unsigned long& table : tables)
                table = makeTable(0);
            guest = make(&HistoryModel::guestClass);
            maker.startTransaction();
            static_cast<Guest*>(maker.getInstance(guest, maker.guestClass))->table =
                static_cast<Table*>(maker.getInstance(tables[2], maker.tableClass));
            maker.commit();
        },
        [&] {
            const std::string at = stored("[table] FROM [Guest]", guest);
            std::set<std::string> places;
            if (sides[0].committed)
                places.insert(std::to_string(tables[0]));
            if (sides[1].committed)
                places.insert(std::to_string(tables[1]));
            if (places.empty())
                places.insert(std::to_string(tables[2]));
            EXPECT_EQ(1U, places.count(at)) << at;
        });
}

INSTANTIATE_TEST_SUITE_P(Levels, LinkInterleavingTest,
                         ::testing::ValuesIn(levelsOf(driverUnderTest())), shownName);

}  // namespace Kes::testing
