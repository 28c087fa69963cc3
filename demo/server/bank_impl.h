// Servants of the demo bank: accounts, savings accounts and the bank that
// opens them. All account state is guarded by one mutex of the bank; the
// server is a demo peer, and one lock keeps transfers between two accounts
// simple and deadlock-free.
#ifndef BANK_IMPL_H
#define BANK_IMPL_H

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bank.hh"

namespace demo {

// What the bank knows of one account.
struct Ledger {
    std::string number;
    std::string owner;
    Banking::CurrencyCode currency = Banking::EUR;
    double balance = 0;
    bool frozen = false;
    bool savings = false;
    float interest_rate = 0;  // percent a year, savings only
    std::vector<Banking::Entry> entries;
};

class BankImpl;

// Account behaviour shared by both account kinds; Skeleton is the POA class.
template <class Skeleton>
class AccountServant : public Skeleton {
public:
    AccountServant(BankImpl &bank, std::shared_ptr<Ledger> ledger)
        : bank_(bank), ledger_(std::move(ledger)) {}

    char *number() override;
    Banking::Money balance() override;
    char *owner() override;
    void owner(const char *value) override;
    CORBA::Boolean frozen() override;
    void frozen(CORBA::Boolean value) override;
    Banking::Money deposit(const Banking::Money &amount) override;
    Banking::Money withdraw(const Banking::Money &amount) override;
    Banking::Entries *statement(CORBA::ULong max_entries) override;
    Banking::RecentEntries *mini_statement() override;
    void month_end_balances(CORBA::Short year, Banking::MonthEnd balances) override;
    void history(CORBA::UShort months, Banking::MonthlyEntries_out history) override;

protected:
    BankImpl &bank_;
    std::shared_ptr<Ledger> ledger_;
};

using AccountImpl = AccountServant<POA_Banking::Account>;

class SavingsImpl : public AccountServant<POA_Banking::SavingsAccount> {
public:
    using AccountServant::AccountServant;
    CORBA::Float interest_rate() override;
    Banking::Money add_interest() override;
};

class BankImpl : public POA_Banking::Bank {
public:
    // Accounts are activated on poa, with object ids "account/NUMBER".
    BankImpl(PortableServer::POA_ptr poa, const std::string &name);

    char *name() override;
    Banking::Account_ptr open_account(const Banking::Customer &owner,
                                      Banking::CurrencyCode currency,
                                      CORBA::Double initial_deposit) override;
    Banking::SavingsAccount_ptr open_savings(const Banking::Customer &owner,
                                             CORBA::Float interest_rate) override;
    Banking::Account_ptr find_account(const char *number) override;
    Banking::AccountList *accounts() override;
    Banking::Receipt *transfer(const Banking::TransferOrder &order,
                               const Banking::PaymentRoute &route) override;
    Banking::Receipts *transfer_batch(const Banking::TransferBatch &batch,
                                      CORBA::ULong &booked) override;
    void close_account(Banking::Account_ptr target, Banking::Money &payout) override;
    void audit(const char *who, const char *event) override;
    CORBA::ULong audit_count() override;
    CORBA::Any *get_property(const char *key) override;
    void set_property(const char *key, const CORBA::Any &value) override;

    // The accounts every run starts with: 1001 and 1002 (current), 1003
    // (savings).
    void open_sample_accounts();
    // Reference of an open account, or nil.
    CORBA::Object_ptr reference_of(const std::string &number);

    std::mutex &lock() { return lock_; }
    // Books an entry on a ledger (lock held); amount is signed.
    static void book(Ledger &ledger, const char *date, const char *text, Banking::EntryKind kind,
                     double amount);

private:
    struct Opened {
        std::shared_ptr<Ledger> ledger;
        CORBA::Object_var ref;
    };
    std::shared_ptr<Ledger> find(const std::string &number);  // lock held
    CORBA::Object_ptr activate(std::shared_ptr<Ledger> ledger);
    std::shared_ptr<Ledger> new_ledger(const Banking::Customer &owner,
                                       Banking::CurrencyCode currency, double deposit);
    // Books one transfer (lock held); throws the user exceptions.
    Banking::Receipt book_transfer(const Banking::TransferOrder &order, const char *via);

    PortableServer::POA_var poa_;
    std::string name_;
    std::mutex lock_;
    std::map<std::string, Opened> accounts_;
    std::map<std::string, CORBA::Any> properties_;
    unsigned long next_number_ = 1001;
    unsigned long next_receipt_ = 1;
    unsigned long audits_ = 0;
};

// Amount in currency to, for an amount in currency from (fixed demo rates).
double convert(double amount, Banking::CurrencyCode from, Banking::CurrencyCode to);

}  // namespace demo

#endif
