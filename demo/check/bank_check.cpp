// A plain omniORB client that checks the demo server's behaviour, so that the
// interop suite can rely on it: bank_check BANK_IOR DIAGNOSTICS_IOR
// FORWARDED_BANK_IOR. Prints each failed check and exits 1 if any failed.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

#include "bank.hh"

namespace {

// The server may run a one-way call after a two-way call sent later, so a
// count of one-way calls is asked again for up to two seconds.
template <class F>
bool eventually(F done) {
    for (int i = 0; i < 200; ++i) {
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

int failures = 0;

void check(bool ok, const char *what) {
    if (!ok) {
        std::printf("FAILED: %s\n", what);
        ++failures;
    }
}

Banking::Customer customer(const char *name) {
    Banking::Customer c;
    c.name = name;
    c.address.street = "Quai 1";
    c.address.city = "Geneva";
    c.address.postcode = "1201";
    c.address.country[0] = 'C';
    c.address.country[1] = 'H';
    c.birth_year = 1990;
    c.vip = false;
    c.risk_class = 2;
    return c;
}

void check_bank(Banking::Bank_ptr bank) {
    CORBA::String_var name = bank->name();
    check(std::strcmp(name, "Harbour Bank") == 0, "Bank name");

    Banking::Account_var acc = bank->open_account(customer("Dora Test"), Banking::EUR, 100.0);
    CORBA::String_var number = acc->number();
    check(std::strcmp(number, "1004") == 0, "first opened account is 1004");
    Banking::Money m;
    m.amount = 50;
    m.currency = Banking::EUR;
    check(acc->deposit(m).amount == 150, "deposit books on the returned object");
    m.amount = 1000;
    try {
        acc->withdraw(m);
        check(false, "withdraw beyond the balance raises InsufficientFunds");
    } catch (const Banking::InsufficientFunds &e) {
        check(e.available.amount == 150 && e.requested.amount == 1000, "InsufficientFunds members");
    }

    Banking::Account_var alice = bank->find_account("1001");
    Banking::Entries_var all = alice->statement(0);
    check(all->length() == 8, "1001 has eight entries");
    Banking::RecentEntries_var recent = alice->mini_statement();
    check(recent->length() == 5 && recent[4].number == 8, "mini statement holds the latest five");
    Banking::MonthlyEntries_var months;
    alice->history(2, months);
    check(months->length() == 2 && months[0].length() == 4 && months[1].length() == 2,
          "history by month");
    Banking::MonthEnd ends;
    alice->month_end_balances(2024, ends);
    check(std::fabs(ends[0] - 5200) < 0.001 && std::fabs(ends[1] - 6855.6) < 0.001 &&
              std::fabs(ends[11] - 5406.85) < 0.001,
          "month-end balances");
    try {
        bank->find_account("9999");
        check(false, "unknown account raises UnknownAccount");
    } catch (const Banking::UnknownAccount &e) {
        check(std::strcmp(e.number, "9999") == 0, "UnknownAccount names the number");
    }

    Banking::TransferOrder order;
    order.from_account = "1001";
    order.to_account = "1002";
    order.amount.amount = 25;
    order.amount.currency = Banking::EUR;
    order.reference = "lunch";
    Banking::DebitMandate mandate;
    mandate.creditor = "Canteen";
    mandate.reference = "M-1";
    mandate.limit = 100;
    Banking::PaymentRoute route;
    route.mandate(mandate);
    Banking::Receipt_var receipt = bank->transfer(order, route);
    check(receipt->booked, "transfer booked");
    Banking::Account_var bruno = bank->find_account("1002");
    check(bruno->balance().amount == 175, "transfer credits the payee");

    bank->audit("check", "audit one-way");
    // A one-way call may still be queued when a later two-way call returns;
    // ask again for a bounded while before calling it lost.
    const auto audit_deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    CORBA::ULong audits = bank->audit_count();
    while (audits < 1 && std::chrono::steady_clock::now() < audit_deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        audits = bank->audit_count();
    }
    check(audits == 1, "one-way audit arrives");
    CORBA::Any_var bic = bank->get_property("bic");
    const char *text = nullptr;
    check((bic >>= text) && std::strcmp(text, "ORBKCHZZ") == 0, "property any");
}

void check_diagnostics(Banking::Diagnostics_ptr diag) {
    CORBA::Long b = 0, c = 7;
    check(diag->echo_long(5, b, c) == 5 && b == 7 && c == 5, "echo_long directions");
    CORBA::String_var sb;
    CORBA::String_var sc = CORBA::string_dup("old");
    CORBA::String_var sr = diag->echo_string("new", sb.out(), sc.inout());
    check(std::strcmp(sr, "new") == 0 && std::strcmp(sb, "old") == 0 && std::strcmp(sc, "new") == 0,
          "echo_string directions");
    Banking::PaymentRoute a, cr;
    a.card_suffix(1234);
    cr.iban("CH00");
    Banking::PaymentRoute_var br;
    Banking::PaymentRoute_var rr = diag->echo_route(a, br.out(), cr);
    check(rr->_d() == Banking::CARD && rr->card_suffix() == 1234 && br->_d() == Banking::SEPA &&
              cr._d() == Banking::CARD,
          "echo_route directions");
    try {
        diag->fail(3);
        check(false, "fail(3) raises AccountFrozen");
    } catch (const Banking::AccountFrozen &) {
    }
    try {
        diag->fail(4);
        check(false, "fail(4) raises BAD_PARAM");
    } catch (const CORBA::BAD_PARAM &e) {
        check(e.minor() == 42 && e.completed() == CORBA::COMPLETED_NO,
              "BAD_PARAM minor and completion");
    }
    diag->note(3);
    diag->note(4);
    check(eventually([&] { return diag->notes_count() == 2; }) && diag->notes_total() == 7,
          "one-way notes arrive");
    check(diag->delay(20) == 20, "delay answers");
}

}  // namespace

int main(int argc, char **argv) {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    if (argc != 4) {
        std::fprintf(stderr, "usage: bank_check BANK_IOR DIAGNOSTICS_IOR FORWARDED_BANK_IOR\n");
        return 2;
    }
    try {
        CORBA::Object_var obj = orb->string_to_object(argv[1]);
        Banking::Bank_var bank = Banking::Bank::_narrow(obj);
        check_bank(bank);
        obj = orb->string_to_object(argv[2]);
        Banking::Diagnostics_var diag = Banking::Diagnostics::_narrow(obj);
        check_diagnostics(diag);
        // Reached through a location forward.
        obj = orb->string_to_object(argv[3]);
        Banking::Bank_var forwarded = Banking::Bank::_unchecked_narrow(obj);
        check(eventually([&] { return forwarded->audit_count() == 1; }),
              "forwarded reference reaches the bank");
    } catch (const CORBA::Exception &e) {
        std::printf("FAILED: unexpected %s\n", e._name());
        ++failures;
    }
    orb->destroy();
    return failures ? 1 : 0;
}
