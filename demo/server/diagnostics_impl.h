// The line-check servant: echo operations for every kind of value, chosen
// failures, a slow call and counted one-way calls.
#ifndef DIAGNOSTICS_IMPL_H
#define DIAGNOSTICS_IMPL_H

#include <mutex>

#include "bank.hh"

namespace demo {

class DiagnosticsImpl : public POA_Banking::Diagnostics {
public:
    CORBA::Short echo_short(CORBA::Short a, CORBA::Short &b, CORBA::Short &c) override;
    CORBA::Long echo_long(CORBA::Long a, CORBA::Long &b, CORBA::Long &c) override;
    CORBA::UShort echo_ushort(CORBA::UShort a, CORBA::UShort &b, CORBA::UShort &c) override;
    CORBA::ULong echo_ulong(CORBA::ULong a, CORBA::ULong &b, CORBA::ULong &c) override;
    CORBA::Float echo_float(CORBA::Float a, CORBA::Float &b, CORBA::Float &c) override;
    CORBA::Double echo_double(CORBA::Double a, CORBA::Double &b, CORBA::Double &c) override;
    CORBA::Boolean echo_boolean(CORBA::Boolean a, CORBA::Boolean &b, CORBA::Boolean &c) override;
    CORBA::Char echo_char(CORBA::Char a, CORBA::Char &b, CORBA::Char &c) override;
    CORBA::Octet echo_octet(CORBA::Octet a, CORBA::Octet &b, CORBA::Octet &c) override;
    char *echo_string(const char *a, CORBA::String_out b, char *&c) override;
    Banking::Account_ptr echo_account(Banking::Account_ptr a, Banking::Account_out b,
                                      Banking::Account_ptr &c) override;
    Banking::CurrencyCode echo_currency(Banking::CurrencyCode a, Banking::CurrencyCode &b,
                                        Banking::CurrencyCode &c) override;
    Banking::Money echo_money(const Banking::Money &a, Banking::Money &b,
                              Banking::Money &c) override;
    Banking::Customer *echo_customer(const Banking::Customer &a, Banking::Customer_out b,
                                     Banking::Customer &c) override;
    Banking::MonthEnd_slice *echo_month_end(const Banking::MonthEnd a, Banking::MonthEnd b,
                                            Banking::MonthEnd c) override;
    Banking::Longs *echo_longs(const Banking::Longs &a, Banking::Longs_out b,
                               Banking::Longs &c) override;
    Banking::Names *echo_names(const Banking::Names &a, Banking::Names_out b,
                               Banking::Names &c) override;
    Banking::Entries *echo_statement(const Banking::Entries &a, Banking::Entries_out b,
                                     Banking::Entries &c) override;
    Banking::RecentEntries *echo_mini(const Banking::RecentEntries &a, Banking::RecentEntries_out b,
                                      Banking::RecentEntries &c) override;
    Banking::MonthlyEntries *echo_history(const Banking::MonthlyEntries &a,
                                          Banking::MonthlyEntries_out b,
                                          Banking::MonthlyEntries &c) override;
    Banking::PaymentRoute *echo_route(const Banking::PaymentRoute &a, Banking::PaymentRoute_out b,
                                      Banking::PaymentRoute &c) override;
    CORBA::Any *echo_any(const CORBA::Any &a, CORBA::Any_OUT_arg b, CORBA::Any &c) override;

    void fail(CORBA::Short which) override;
    CORBA::ULong delay(CORBA::ULong ms) override;
    void note(CORBA::Long n) override;
    CORBA::Long notes_total() override;
    CORBA::ULong notes_count() override;
    CORBA::ULong requests_served() override;

    // Counts every request the server receives (an omniORB interceptor
    // calls it before the request is dispatched).
    static void count_request();

private:
    std::mutex lock_;
    CORBA::Long total_ = 0;
    CORBA::ULong count_ = 0;
};

}  // namespace demo

#endif
