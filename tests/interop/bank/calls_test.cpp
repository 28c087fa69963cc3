// Kinds of call against omniORB: exceptions, one-way, deferred, and object
// references handed back by the bank and then called.
#include <chrono>

#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

using steady = std::chrono::steady_clock;

long ms_since(steady::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(steady::now() - start).count());
}

// The user's own exceptions are not visible to a script: every one ends as
// OBJ_ADAPTER with status 2. System exceptions reach it by name.
TEST_F(BankTest, ExceptionsReachTheScriptAsStatusIndexAndId) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    const char *obj_adapter = "IDL:omg.org/CORBA/OBJ_ADAPTER:1.0";
    struct Expected {
        int which, status, index;
        const char *id, *what;
    } expected[] = {
        {1, 2, 23, obj_adapter, "exception InsufficientFunds"},
        {2, 2, 23, obj_adapter, "exception UnknownAccount"},
        {3, 2, 23, obj_adapter, "exception AccountFrozen"},
        // After a user exception a system exception Reply sets status 1 again.
        {4, 1, 1, "IDL:omg.org/CORBA/BAD_PARAM:1.0", "BAD_PARAM"},
        {5, 1, 6, "IDL:omg.org/CORBA/NO_PERMISSION:1.0", "NO_PERMISSION"},
        {6, 1, 25, "IDL:omg.org/CORBA/OBJECT_NOT_EXIST:1.0", "OBJECT_NOT_EXIST"},
        {7, 1, 17, "IDL:omg.org/CORBA/TRANSIENT:1.0", "TRANSIENT"},
        // A plain call still works on the same connection.
        {0, 0, 0, "", "void fail(in short), in"},
    };
    for (const Expected &e : expected) {
        Call fail(client_, diag, kDiagnosticsId, "fail");
        fail.set("which", std::to_string(e.which));
        Outcome o = fail.invoke();
        EXPECT_EQ(o.result, e.status) << e.what << ", raised by fail";
        if (e.status == 0) continue;
        EXPECT_EQ(o.status, e.status) << e.what << ", raised by fail";
        EXPECT_EQ(o.exception_index, e.index) << e.what << ", raised by fail";
        EXPECT_EQ(o.text, e.id) << e.what << ", raised by fail";
    }

    // The same through a bank operation whose out values stay untouched.
    void *bank = client_.bind_ior(kBankId, server_.ior("Bank"));
    ASSERT_NE(bank, nullptr);
    Call transfer(client_, bank, kBankId, "transfer");
    transfer.set("order.from_account", "1002").set("order.to_account", "1001");
    transfer.set("order.amount.amount", "1000000").set("order.amount.currency", "0");
    transfer.set("order.reference", "too much").set("route^discriminator", "10");
    transfer.set("route:mandate.creditor", "x").set("route:mandate.reference", "y");
    transfer.set("route:mandate.limit", "1");
    Outcome o = transfer.invoke();
    EXPECT_EQ(o.status, IIOP_STATUS_USER_EXCEPTION) << "exception InsufficientFunds, transfer";
    EXPECT_EQ(transfer.get("^transfer.booked"), "(no value)") << "struct Receipt, result";
}

// One-way calls return when sent; the server counts them, which two-way
// calls then read. The server may run one-way calls after a later two-way
// one, so the count is asked again for a while.
TEST_F(BankTest, OneWayNotesAreCountedByTheServer) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    for (const char *n : {"5", "-2", "40"}) {
        Call note(client_, diag, kDiagnosticsId, "note");
        note.set("n", n);
        Outcome o = note.invoke(IIOP_ONEWAY);
        EXPECT_EQ(o.result, 0) << "oneway note(in long " << n << ")";
        EXPECT_EQ(note.req().roundtrip, 0) << "oneway note";
    }
    std::string count_text;
    auto start = steady::now();
    do {
        Call count(client_, diag, kDiagnosticsId, "notes_count");
        ASSERT_EQ(count.invoke().result, 0);
        count_text = count.get("^notes_count");
    } while (count_text != "3" && ms_since(start) < 3000);
    EXPECT_EQ(count_text, "3") << "unsigned long, result: one-way notes counted";
    Call total(client_, diag, kDiagnosticsId, "notes_total");
    ASSERT_EQ(total.invoke().result, 0);
    EXPECT_EQ(total.get("^notes_total"), "43") << "long, result after three one-way notes";

    // A two-way operation sent one-way: nothing is read back.
    Call echo(client_, diag, kDiagnosticsId, "echo_long");
    echo.set("a", "9").set("c", "8").set("b", "before");
    EXPECT_EQ(echo.invoke(IIOP_ONEWAY).result, 0);
    EXPECT_EQ(echo.get("b"), "before") << "long, out of a one-way call";
    EXPECT_EQ(echo.get("^echo_long"), "(no value)") << "long, result of a one-way call";
}

// A deferred call whose wait runs out stays on the wait list; polling says
// so, and a wait with a time-out fetches the reply into the list.
TEST_F(BankTest, DeferredReplyIsPolledAndWaitedFor) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    Call delay(client_, diag, kDiagnosticsId, "delay");
    delay.set("ms", "1300");
    auto start = steady::now();
    // Waits below a second wait one full second, so the reply is not in.
    Outcome sent = delay.invoke(IIOP_DEFERRED, 100);
    EXPECT_EQ(sent.status, IIOP_STATUS_SYSTEM_EXCEPTION) << "deferred delay, the wait ran out";
    EXPECT_EQ(sent.exception_index, 4) << sent.text;
    EXPECT_EQ(delay.get("^delay"), "(no value)") << "unsigned long, result before the reply";
    EXPECT_EQ(delay.get_response(0).result, 0) << "poll: the request is on the wait list";

    Outcome got = delay.get_response(5000);
    EXPECT_EQ(got.result, 0) << got.text;
    EXPECT_EQ(delay.get("^delay"), "1300") << "unsigned long, result of a deferred call";
    EXPECT_GE(ms_since(start), 1300);
    EXPECT_EQ(delay.get_response(0).result, 1) << "poll: the reply has been read";

    // A reply that arrives within the deferred call's own wait ends the wait
    // unread; the request stays on the list and nothing more comes.
    Call quick(client_, diag, kDiagnosticsId, "echo_long");
    quick.set("a", "1").set("c", "2");
    EXPECT_EQ(quick.invoke(IIOP_DEFERRED).result, 0);
    EXPECT_EQ(quick.get("^echo_long"), "(no value)") << "long, result of a deferred call";
    EXPECT_EQ(quick.get_response(0).result, 0) << "poll after a reply that came in time";
}

// The reply of a deferred call that is still out is read by the next call on
// the same connection, ahead of that call's own reply, and handed to its
// request.
TEST_F(BankTest, DeferredReplyIsHandedOverDuringALaterCall) {
    void *diag = diagnostics();
    ASSERT_NE(diag, nullptr);
    Call first(client_, diag, kDiagnosticsId, "delay");
    first.set("ms", "1050");
    EXPECT_EQ(first.invoke(IIOP_DEFERRED, 100).exception_index, 4) << "deferred delay";

    // Sent after the first wait ran out (a second), answered after the
    // first reply is in.
    Call second(client_, diag, kDiagnosticsId, "delay");
    second.set("ms", "400");
    Outcome o = second.invoke();
    ASSERT_EQ(o.result, 0) << o.text;
    expect_value(second, "^delay", "400", "unsigned long");
    EXPECT_EQ(first.get_response(0).result, 1) << "poll: the later call took the reply";
    EXPECT_EQ(first.get("^delay"), "1050") << "unsigned long, result handed over";
}

// References that the bank returns, alone and in a sequence, are bound and
// called; a reference goes back to the bank as an in parameter.
TEST_F(BankTest, ReturnedReferencesAreCalledAndPassedBack) {
    void *bank = client_.bind_ior(kBankId, server_.ior("Bank"));
    ASSERT_NE(bank, nullptr);

    Call find(client_, bank, kBankId, "find_account");
    find.set("number", "1003");
    ASSERT_EQ(find.invoke().result, 0) << "interface Account, result";
    void *savings = client_.bind_ior(kSavingsId, find.get("^find_account"));
    ASSERT_NE(savings, nullptr) << "interface Account, result: " << find.get("^find_account");
    Call rate(client_, savings, kSavingsId, "_get_interest_rate");
    ASSERT_EQ(rate.invoke().result, 0) << "calling the returned reference";
    EXPECT_NE(rate.get("^_get_interest_rate"), "(no value)");
    Call owner(client_, savings, kSavingsId, "_get_owner");
    ASSERT_EQ(owner.invoke().result, 0) << "inherited attribute of the returned reference";

    Call all(client_, bank, kBankId, "accounts", {{"^accounts^length", "3"}});
    ASSERT_EQ(all.invoke().result, 0) << "sequence<Account> AccountList, result";
    ASSERT_EQ(all.get("^accounts^length"), "3") << "sequence<Account> AccountList, result";
    for (int i = 0; i < 3; ++i) {
        std::string name = "^accounts[" + std::to_string(i) + "]";
        void *acct = client_.bind_ior(kAccountId, all.get(name));
        ASSERT_NE(acct, nullptr) << "sequence<Account>, result (record " << name << ")";
        Call number(client_, acct, kAccountId, "_get_number");
        ASSERT_EQ(number.invoke().result, 0) << "calling " << name;
        EXPECT_EQ(number.get("^_get_number"), std::to_string(1001 + i)) << name;
        client_.release(acct);
    }

    // A new account from a nested struct; its reference closes it again.
    Call open(client_, bank, kBankId, "open_account", {{"owner.phones^length", "1"}});
    open.set("owner.name", "Dana Lee").set("owner.address.street", "Rue 2");
    open.set("owner.address.city", "Lyon").set("owner.address.postcode", "69001");
    open.set("owner.address.country[0]", "F").set("owner.address.country[1]", "R");
    open.set("owner.birth_year", "1990").set("owner.vip", "0").set("owner.risk_class", "`02`");
    open.set("owner.phones[0]", "+33 4").set("currency", "1").set("initial_deposit", "80");
    ASSERT_EQ(open.invoke().result, 0) << "struct Customer, in";
    std::string ior = open.get("^open_account");
    void *acct = client_.bind_ior(kAccountId, ior);
    ASSERT_NE(acct, nullptr) << "interface Account, result";
    Call name(client_, acct, kAccountId, "_get_owner");
    ASSERT_EQ(name.invoke().result, 0);
    EXPECT_EQ(name.get("^_get_owner"), "Dana Lee") << "struct Customer, in: name";

    Call close(client_, bank, kBankId, "close_account");
    close.set("target", ior);
    ASSERT_EQ(close.invoke().result, 0) << "interface Account, in";
    expect_value(close, "payout.amount", "80.000000", "struct Money");
    expect_value(close, "payout.currency", "1", "struct Money");
    Call gone(client_, acct, kAccountId, "_get_owner");
    EXPECT_EQ(gone.invoke().exception_index, 25) << "a closed account no longer exists";
    client_.release(acct);
    client_.release(savings);
    client_.release(bank);
}

}  // namespace
}  // namespace bank
