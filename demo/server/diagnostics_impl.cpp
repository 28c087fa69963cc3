#include "diagnostics_impl.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace demo {

namespace {

// The longest delay a caller may ask for: enough for any time-out test,
// short enough that a forgotten call does not hold a test run.
constexpr CORBA::ULong kMaxDelayMs = 10000;

// Every echo: the result is a, b gets the old c, c becomes a.
template <class T>
T echo(T a, T &b, T &c) {
    b = c;
    c = a;
    return a;
}

// The same for variable-length values, whose out and result are new.
template <class T>
T *echo_var(const T &a, T *&b, T &c) {
    b = new T(c);
    c = a;
    return new T(a);
}

}  // namespace

CORBA::Short DiagnosticsImpl::echo_short(CORBA::Short a, CORBA::Short &b, CORBA::Short &c) {
    return echo(a, b, c);
}
CORBA::Long DiagnosticsImpl::echo_long(CORBA::Long a, CORBA::Long &b, CORBA::Long &c) {
    return echo(a, b, c);
}
CORBA::UShort DiagnosticsImpl::echo_ushort(CORBA::UShort a, CORBA::UShort &b, CORBA::UShort &c) {
    return echo(a, b, c);
}
CORBA::ULong DiagnosticsImpl::echo_ulong(CORBA::ULong a, CORBA::ULong &b, CORBA::ULong &c) {
    return echo(a, b, c);
}
CORBA::Float DiagnosticsImpl::echo_float(CORBA::Float a, CORBA::Float &b, CORBA::Float &c) {
    return echo(a, b, c);
}
CORBA::Double DiagnosticsImpl::echo_double(CORBA::Double a, CORBA::Double &b, CORBA::Double &c) {
    return echo(a, b, c);
}
CORBA::Boolean DiagnosticsImpl::echo_boolean(CORBA::Boolean a, CORBA::Boolean &b,
                                             CORBA::Boolean &c) {
    return echo(a, b, c);
}
CORBA::Char DiagnosticsImpl::echo_char(CORBA::Char a, CORBA::Char &b, CORBA::Char &c) {
    return echo(a, b, c);
}
CORBA::Octet DiagnosticsImpl::echo_octet(CORBA::Octet a, CORBA::Octet &b, CORBA::Octet &c) {
    return echo(a, b, c);
}
Banking::CurrencyCode DiagnosticsImpl::echo_currency(Banking::CurrencyCode a,
                                                     Banking::CurrencyCode &b,
                                                     Banking::CurrencyCode &c) {
    return echo(a, b, c);
}
Banking::Money DiagnosticsImpl::echo_money(const Banking::Money &a, Banking::Money &b,
                                           Banking::Money &c) {
    b = c;
    c = a;
    return a;
}

char *DiagnosticsImpl::echo_string(const char *a, CORBA::String_out b, char *&c) {
    b = c;  // the old inout string moves to b
    c = CORBA::string_dup(a);
    return CORBA::string_dup(a);
}

Banking::Account_ptr DiagnosticsImpl::echo_account(Banking::Account_ptr a, Banking::Account_out b,
                                                   Banking::Account_ptr &c) {
    b = c;  // the old inout reference moves to b
    c = Banking::Account::_duplicate(a);
    return Banking::Account::_duplicate(a);
}

Banking::Customer *DiagnosticsImpl::echo_customer(const Banking::Customer &a,
                                                  Banking::Customer_out b, Banking::Customer &c) {
    Banking::Customer *old = nullptr;
    Banking::Customer *result = echo_var(a, old, c);
    b = old;
    return result;
}

Banking::MonthEnd_slice *DiagnosticsImpl::echo_month_end(const Banking::MonthEnd a,
                                                         Banking::MonthEnd b, Banking::MonthEnd c) {
    for (int i = 0; i < 12; ++i) {
        b[i] = c[i];
        c[i] = a[i];
    }
    return Banking::MonthEnd_dup(a);
}

Banking::Longs *DiagnosticsImpl::echo_longs(const Banking::Longs &a, Banking::Longs_out b,
                                            Banking::Longs &c) {
    Banking::Longs *old = nullptr;
    Banking::Longs *result = echo_var(a, old, c);
    b = old;
    return result;
}

Banking::Names *DiagnosticsImpl::echo_names(const Banking::Names &a, Banking::Names_out b,
                                            Banking::Names &c) {
    Banking::Names *old = nullptr;
    Banking::Names *result = echo_var(a, old, c);
    b = old;
    return result;
}

Banking::Entries *DiagnosticsImpl::echo_statement(const Banking::Entries &a, Banking::Entries_out b,
                                                  Banking::Entries &c) {
    Banking::Entries *old = nullptr;
    Banking::Entries *result = echo_var(a, old, c);
    b = old;
    return result;
}

Banking::RecentEntries *DiagnosticsImpl::echo_mini(const Banking::RecentEntries &a,
                                                   Banking::RecentEntries_out b,
                                                   Banking::RecentEntries &c) {
    Banking::RecentEntries *old = nullptr;
    Banking::RecentEntries *result = echo_var(a, old, c);
    b = old;
    return result;
}

Banking::MonthlyEntries *DiagnosticsImpl::echo_history(const Banking::MonthlyEntries &a,
                                                       Banking::MonthlyEntries_out b,
                                                       Banking::MonthlyEntries &c) {
    Banking::MonthlyEntries *old = nullptr;
    Banking::MonthlyEntries *result = echo_var(a, old, c);
    b = old;
    return result;
}

Banking::PaymentRoute *DiagnosticsImpl::echo_route(const Banking::PaymentRoute &a,
                                                   Banking::PaymentRoute_out b,
                                                   Banking::PaymentRoute &c) {
    Banking::PaymentRoute *old = nullptr;
    Banking::PaymentRoute *result = echo_var(a, old, c);
    b = old;
    return result;
}

CORBA::Any *DiagnosticsImpl::echo_any(const CORBA::Any &a, CORBA::Any_OUT_arg b, CORBA::Any &c) {
    CORBA::Any *old = nullptr;
    CORBA::Any *result = echo_var(a, old, c);
    b = old;
    return result;
}

void DiagnosticsImpl::fail(CORBA::Short which) {
    const CORBA::ULong minor = 42;
    Banking::Money none;
    none.amount = 0;
    none.currency = Banking::EUR;
    Banking::Money asked;
    asked.amount = 100;
    asked.currency = Banking::EUR;
    switch (which) {
        case 0:
            return;
        case 1:
            throw Banking::InsufficientFunds(none, asked);
        case 2:
            throw Banking::UnknownAccount("0000");
        case 3:
            throw Banking::AccountFrozen("frozen for the test");
        case 4:
            throw CORBA::BAD_PARAM(minor, CORBA::COMPLETED_NO);
        case 5:
            throw CORBA::NO_PERMISSION(minor, CORBA::COMPLETED_NO);
        case 6:
            throw CORBA::OBJECT_NOT_EXIST(minor, CORBA::COMPLETED_NO);
        case 7:
            throw CORBA::TRANSIENT(minor, CORBA::COMPLETED_NO);
        default:
            throw CORBA::BAD_PARAM(minor + 1, CORBA::COMPLETED_NO);
    }
}

CORBA::ULong DiagnosticsImpl::delay(CORBA::ULong ms) {
    CORBA::ULong wait = ms < kMaxDelayMs ? ms : kMaxDelayMs;
    std::this_thread::sleep_for(std::chrono::milliseconds(wait));
    return ms;
}

void DiagnosticsImpl::note(CORBA::Long n) {
    std::lock_guard<std::mutex> hold(lock_);
    // Wraps around like the caller's 32-bit arithmetic would.
    total_ =
        static_cast<CORBA::Long>(static_cast<CORBA::ULong>(total_) + static_cast<CORBA::ULong>(n));
    ++count_;
}

CORBA::Long DiagnosticsImpl::notes_total() {
    std::lock_guard<std::mutex> hold(lock_);
    return total_;
}

CORBA::ULong DiagnosticsImpl::notes_count() {
    std::lock_guard<std::mutex> hold(lock_);
    return count_;
}

namespace {
std::atomic<CORBA::ULong> requests{0};
}  // namespace

void DiagnosticsImpl::count_request() { requests.fetch_add(1, std::memory_order_relaxed); }

CORBA::ULong DiagnosticsImpl::requests_served() { return requests.load(std::memory_order_relaxed); }

}  // namespace demo
