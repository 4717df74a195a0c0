// Reading dialogues: mistakes are found where they stand, patterns match what they say.

#include "dialogue.h"

#include <gtest/gtest.h>

using namespace modemsim;

namespace
{

struct mistake {
    const char *fault;
    const char *text;
    const char *message; // "FILE:LINE: " and the start of the cause
};

const mistake mistakes[] = {
    {"a mistyped step", "command AT\n    anwser hello\n", "t:2: unknown step 'anwser'"},
    {"a mistyped directive", "# one\n\ncomand AT\n", "t:3: unknown word 'comand'"},
    {"a command that never ends", "set a 1\ncommand AT\n    line x\n\ncommand ATI\n    final OK\n",
     "t:2: the command has no final result"},
    {"a step of no block", "    final OK\n", "t:1: an indented step outside of a block"},
    {"a capture of another command", "command A{x}\n    final OK\ncommand B\n    line {x}\n    final OK\n",
     "t:4: the variable {x}"},
    {"a bad escape", "command AT\n    raw \\xZ1\n", "t:2: \\x wants two hexadecimal digits"},
    {"an escape cut by the line's end", "command AT\n    raw a\\\n", "t:2: a backslash ends the text"},
    {"a brace that stays open", "command AT{x\n    final OK\n", "t:1: '{' without '}'"},
    {"a delay that is none", "command AT\n    delay soon\n", "t:2: 'soon' is no duration"},
    {"a period that never advances", "every 0ms\n    report X\n", "t:1: a period of 0"},
    {"an answer in a schedule", "every 1s\n    final OK\n", "t:2: 'final' belongs to a command"},
    {"a repeat that stays open", "command AT\n    repeat 3\n    line x\n\nset a 1\n",
     "t:2: repeat without end"},
    {"a repeat without bound", "command AT\n    repeat 99999\n", "t:2: repeat wants a number"},
    {"a mistake inside a repeat", "command AT\n    repeat 2\n    line a\n    oops\n    end\n",
     "t:4: unknown step 'oops'"},
    {"an if that stays open", "command AT\n    if a = 1\n    final OK\n\nset a 1\n", "t:2: if without end"},
    {"an else of nothing", "command AT\n    else\n", "t:2: 'else' without 'if'"},
    {"two elses", "set a 1\ncommand AT\n    if a = 1\n    else\n    else\n", "t:5: 'else' without 'if'"},
    {"an end of nothing", "command AT\n    end\n", "t:2: 'end' without"},
    {"a comparison that is none", "command AT\n    if a ~ 1\n", "t:2: write 'if NAME = TEXT'"},
    {"a condition on nothing", "command AT\n    if a = 1\n    end\n    final OK\n", "t:2: the variable {a}"},
    {"an answer later", "command AT\n    later 1s final OK\n", "t:2: later wants a time and one step"},
    {"a later that has no time", "command AT\n    later soon report X\n", "t:2: 'soon' is no duration"},
    {"an unknown action", "command AT\n    messages burn 1\n", "t:2: unknown action 'burn'"},
    {"an unknown far end", "command AT\n    data tea\n", "t:2: write 'data echo'"},
    {"a message in no state", "message lost 00\n", "t:1: message wants unread, read"},
    {"a message cut short", "message read 0791\n", "t:1: message wants unread, read"},
    {"a missing include", "include nowhere.dialogue\n", "t:1: cannot read nowhere.dialogue"},
};

TEST(Dialogue, MistakesNameFileLineAndCause)
{
    for (const mistake &row : mistakes) {
        SCOPED_TRACE(row.fault);
        try {
            parse_dialogue(row.text, "t");
            ADD_FAILURE() << "accepted";
        } catch (const dialogue_error &error) {
            EXPECT_EQ(std::string(error.what()).rfind(row.message, 0), 0U) << error.what();
        }
    }
}

struct match_case {
    const char *fault;
    const char *pattern;
    const char *line;
    bool matches;
    const char *x; // the remembered text
};

const match_case match_cases[] = {
    {"case must not matter", "AT+CSQ", "at+csq", true, ""},
    {"the question mark is plain text, and a prefix no match", "AT+CREG?", "AT+CREGX?", false, ""},
    {"a star takes nothing as well, and must back off", "AT*=1*", "AT+A=0,B=1", true, ""},
    {"a remembered text keeps its case", "AT+CUSD=1,\"{x}\"*", "AT+CUSD=1,\"aBc\",15", true, "aBc"},
    {"digits only", "AT+CMGS={x:#}", "AT+CMGS=2a", false, ""},
    {"digits, and at least one", "AT+CMGS={x:#}", "AT+CMGS=", false, ""},
    {"digits to the comma", "AT+CMGW={x:#},*", "AT+CMGW=23,1", true, "23"},
    {"a choice refuses others", "AT+CMEE={x:0|1|2}", "AT+CMEE=3", false, ""},
    {"a choice may be empty", "AT+{x:C|}GMI", "AT+GMI", true, ""},
    {"an escaped star is plain text", "ATD\\*99#", "ATD*99#", true, ""},
};

TEST(Dialogue, PatternsMatchWhatTheySay)
{
    for (const match_case &row : match_cases) {
        SCOPED_TRACE(row.fault);
        variables captured;
        EXPECT_EQ(command_pattern(row.pattern).match(row.line, captured), row.matches);
        EXPECT_EQ(captured["x"], row.x);
    }
    variables ignored; // would take years with plain backtracking
    EXPECT_FALSE(command_pattern("*a*a*a*a*a*a*b").match(std::string(300, 'a'), ignored));
}

} // namespace
