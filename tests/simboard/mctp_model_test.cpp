// The MCTP endpoint model against DSP0236 and DSP0237.
#include "model.h"

namespace
{

using simboard::testing::Board;

constexpr uint16_t kAddress = 0x1d;
const std::string ENDPOINT =
    board_with(R"({"name": "mc", "type": "mctp", "address": "0x1d", "eid": 9})");

// Get Endpoint ID to whoever is there, from the requester at 0x10 with endpoint 8, tag 3.
const Bytes GET_ID = {0x0f, 0x08, 0x21, 0x01, 0x00, 0x08, 0xcb, 0x00, 0x85, 0x02};
// The answer: instance 5, success, endpoint 9.
const Bytes ID = {0x0f, 0x0c, 0x3b, 0x01, 0x08, 0x09, 0xc3, 0x00,
                  0x05, 0x02, 0x00, 0x09, 0x00, 0x00, 0x38};

Bytes with(Bytes packet, size_t place, uint8_t value)
{
    packet[place] = value;
    return packet;
}

Bytes followed_by(Bytes packet, uint8_t byte)
{
    packet.push_back(byte);
    return packet;
}

// A control request of one packet, and the answer without its check code.
Bytes request(uint8_t command, const Bytes &data)
{
    Bytes packet = GET_ID;
    packet[1] = static_cast<uint8_t>(packet[1] + data.size());
    packet[9] = command;
    packet.insert(packet.end(), data.begin(), data.end());
    return packet;
}

Bytes response(uint8_t command, const Bytes &data, uint8_t id = 9)
{
    Bytes packet(ID.begin(), ID.begin() + 10);
    packet[1] = static_cast<uint8_t>(8 + data.size());
    packet[5] = id;
    packet[9] = command;
    packet.insert(packet.end(), data.begin(), data.end());
    return packet;
}

TEST(MctpModel, AnswersAWholePacketOnce)
{
    Board board(ENDPOINT);
    const Bytes id_and_ones = followed_by(followed_by(ID, 0xff), 0xff);
    follow(Device(0), kAddress,
           {
               {"nothing to read", {}, {0}, ENXIO},
               {"quick write", {}, {}},
               {"request", GET_ID, {}},
               {"a first look takes nothing away", {}, {0x0f}},
               {"answer", {}, id_and_ones},
               {"was read", {}, {0}, ENXIO},
               {"request with check code", followed_by(GET_ID, 0x2d), {}},
               {"answer", {}, ID},
               {"in one transfer", GET_ID, ID},
               {"wrong check code", followed_by(GET_ID, 0x2c), {}, EIO},
               {"dropped", {}, {0}, ENXIO},
               {"byte behind the check code", followed_by(followed_by(GET_ID, 0x2d), 0), {}, EIO},
               {"dropped", {}, {0}, ENXIO},
               {"cut short", Bytes(GET_ID.begin(), GET_ID.end() - 1), {}},
               {"dropped", {}, {0}, ENXIO},
               {"other command code", with(GET_ID, 0, 0x0e), {}, EIO},
               {"count without header", with(GET_ID, 1, 4), {}, EIO},
           });
}

TEST(MctpModel, DropsWhatIsNoRequestForIt)
{
    Board board(ENDPOINT);
    const Device bus(0);
    for (const Bytes &packet : {with(GET_ID, 3, 0x02),    // header version
                                with(GET_ID, 4, 0x0a),    // other endpoint
                                with(GET_ID, 6, 0x8b),    // first packet of several
                                with(GET_ID, 6, 0xc3),    // a response's tag
                                with(GET_ID, 7, 0x01),    // PLDM
                                with(GET_ID, 8, 0x05)}) { // a response
        SCOPED_TRACE(::testing::PrintToString(packet));
        follow(bus, kAddress, {{"taken", packet, {}}, {"not answered", {}, {0}, ENXIO}});
    }
    follow(bus, kAddress, {{"by its own identifier", with(GET_ID, 4, 9), ID}});
}

TEST(MctpModel, ControlCommands)
{
    Board board(ENDPOINT);
    const Device bus(0);
    const struct {
        const char *what;
        uint8_t command;
        Bytes data, answer;
        uint8_t id = 9; // of the endpoint when it answers
    } rows[] = {
        {"data behind Get Endpoint ID", 2, {0}, {3}},
        {"base version", 4, {0xff}, {0, 1, 0xf1, 0xf3, 0xf1, 0}},
        {"control version", 4, {0}, {0, 1, 0xf1, 0xf3, 0xf1, 0}},
        {"PLDM version", 4, {1}, {0x80}},
        {"version of nothing", 4, {}, {3}},
        {"message types", 5, {}, {0, 0}},
        {"UUID", 3, {}, {5}},
        {"no such command", 0x7f, {1, 2, 3}, {5}},
        {"reserved identifier", 1, {0, 7}, {2}},
        {"broadcast identifier", 1, {0, 0xff}, {2}},
        {"reset to a static identifier", 1, {2, 0x20}, {2}},
        {"identifier missing", 1, {0}, {3}},
        {"set", 1, {0, 0x20}, {0, 0, 0x20, 0}},
        {"get what was set", 2, {}, {0, 0x20, 0, 0}, 0x20},
        {"force", 1, {1, 0x21}, {0, 0, 0x21, 0}, 0x20},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        const Bytes expected = response(row.command, row.answer, row.id);
        Bytes bytes(expected.size() + 1);
        ASSERT_EQ(bus.write(kAddress, request(row.command, row.data)), 1);
        ASSERT_EQ(bus.read(kAddress, bytes), 1);
        bytes.pop_back();
        EXPECT_EQ(bytes, expected);
    }
    EXPECT_EQ(board.stimulus("mc", "eid"), 0x21);
}

TEST(MctpModel, AnAnswerCanBePutThere)
{
    Board board(ENDPOINT);
    board.poke("mc", 256, {1, 2, 3});
    board.set_stimulus("mc", "response_length", 3);
    follow(Device(0), kAddress,
           {{"", {}, {1, 2, 3, 0xff}}, {"was read", {}, {0}, ENXIO}, {"request", GET_ID, {}}});
    EXPECT_EQ(board.peek("mc", 0, 10), GET_ID);
    EXPECT_EQ(board.stimulus("mc", "response_length"), 15);
}

} // namespace
