#include "bank_impl.h"

#include <cstdio>
#include <ctime>

namespace demo {

namespace {

// Units of each currency for one EUR.
double per_eur(Banking::CurrencyCode c) {
    switch (c) {
        case Banking::USD:
            return 1.10;
        case Banking::GBP:
            return 0.85;
        case Banking::CHF:
            return 0.95;
        case Banking::JPY:
            return 160.0;
        default:
            return 1.0;
    }
}

std::string today() {
    char text[16];
    std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
    return text;
}

Banking::Money money(double amount, Banking::CurrencyCode currency) {
    Banking::Money m;
    m.amount = amount;
    m.currency = currency;
    return m;
}

// Amounts are kept to the cent.
double cents(double amount) {
    return static_cast<double>(static_cast<long long>(amount * 100 + (amount < 0 ? -0.5 : 0.5))) /
           100;
}

void check_amount(const Banking::Money &m) {
    if (!(m.amount > 0) || m.amount > 1e12) throw CORBA::BAD_PARAM(1, CORBA::COMPLETED_NO);
}

}  // namespace

double convert(double amount, Banking::CurrencyCode from, Banking::CurrencyCode to) {
    return cents(amount / per_eur(from) * per_eur(to));
}

// ---- accounts

template <class S>
char *AccountServant<S>::number() {
    return CORBA::string_dup(ledger_->number.c_str());
}

template <class S>
Banking::Money AccountServant<S>::balance() {
    std::lock_guard<std::mutex> hold(bank_.lock());
    return money(ledger_->balance, ledger_->currency);
}

template <class S>
char *AccountServant<S>::owner() {
    std::lock_guard<std::mutex> hold(bank_.lock());
    return CORBA::string_dup(ledger_->owner.c_str());
}

template <class S>
void AccountServant<S>::owner(const char *value) {
    std::lock_guard<std::mutex> hold(bank_.lock());
    ledger_->owner = value;
}

template <class S>
CORBA::Boolean AccountServant<S>::frozen() {
    std::lock_guard<std::mutex> hold(bank_.lock());
    return ledger_->frozen;
}

template <class S>
void AccountServant<S>::frozen(CORBA::Boolean value) {
    std::lock_guard<std::mutex> hold(bank_.lock());
    ledger_->frozen = value;
}

template <class S>
Banking::Money AccountServant<S>::deposit(const Banking::Money &amount) {
    check_amount(amount);
    std::lock_guard<std::mutex> hold(bank_.lock());
    if (ledger_->frozen) throw Banking::AccountFrozen("account is frozen");
    BankImpl::book(*ledger_, today().c_str(), "Deposit", Banking::CREDIT,
                   convert(amount.amount, amount.currency, ledger_->currency));
    return money(ledger_->balance, ledger_->currency);
}

template <class S>
Banking::Money AccountServant<S>::withdraw(const Banking::Money &amount) {
    check_amount(amount);
    std::lock_guard<std::mutex> hold(bank_.lock());
    if (ledger_->frozen) throw Banking::AccountFrozen("account is frozen");
    double value = convert(amount.amount, amount.currency, ledger_->currency);
    if (value > ledger_->balance)
        throw Banking::InsufficientFunds(money(ledger_->balance, ledger_->currency), amount);
    BankImpl::book(*ledger_, today().c_str(), "Withdrawal", Banking::DEBIT, -value);
    return money(ledger_->balance, ledger_->currency);
}

template <class S>
Banking::Entries *AccountServant<S>::statement(CORBA::ULong max_entries) {
    std::lock_guard<std::mutex> hold(bank_.lock());
    const auto &all = ledger_->entries;
    size_t n = max_entries == 0 || max_entries > all.size() ? all.size() : max_entries;
    Banking::Entries_var out = new Banking::Entries;
    out->length(static_cast<CORBA::ULong>(n));
    for (size_t i = 0; i < n; ++i) out[static_cast<CORBA::ULong>(i)] = all[all.size() - n + i];
    return out._retn();
}

template <class S>
Banking::RecentEntries *AccountServant<S>::mini_statement() {
    std::lock_guard<std::mutex> hold(bank_.lock());
    const auto &all = ledger_->entries;
    size_t n = all.size() < 5 ? all.size() : 5;
    Banking::RecentEntries_var out = new Banking::RecentEntries;
    out->length(static_cast<CORBA::ULong>(n));
    for (size_t i = 0; i < n; ++i) out[static_cast<CORBA::ULong>(i)] = all[all.size() - n + i];
    return out._retn();
}

template <class S>
void AccountServant<S>::month_end_balances(CORBA::Short year, Banking::MonthEnd balances) {
    std::lock_guard<std::mutex> hold(bank_.lock());
    double carried = 0;
    char first[16];
    std::snprintf(first, sizeof first, "%04d-01-01", year);
    for (const auto &e : ledger_->entries)  // balance before the year starts
        if (std::string(e.date.in()) < first) carried = e.balance_after;
    for (int month = 0; month < 12; ++month) {
        char end[16];
        std::snprintf(end, sizeof end, "%04d-%02d-32", year, month + 1);
        for (const auto &e : ledger_->entries) {
            std::string date(e.date.in());
            if (date >= first && date < end) carried = e.balance_after;
        }
        balances[month] = carried;
    }
}

template <class S>
void AccountServant<S>::history(CORBA::UShort months, Banking::MonthlyEntries_out history) {
    std::lock_guard<std::mutex> hold(bank_.lock());
    // Group the entries by their month, oldest first, and keep the last ones.
    std::vector<std::vector<const Banking::Entry *>> groups;
    std::string month;
    for (const auto &e : ledger_->entries) {
        std::string m = std::string(e.date.in()).substr(0, 7);
        if (groups.empty() || m != month) groups.emplace_back();
        month = m;
        groups.back().push_back(&e);
    }
    size_t n = months < groups.size() ? months : groups.size();
    history = new Banking::MonthlyEntries;
    history->length(static_cast<CORBA::ULong>(n));
    for (size_t i = 0; i < n; ++i) {
        const auto &g = groups[groups.size() - n + i];
        Banking::Entries &out = history[static_cast<CORBA::ULong>(i)];
        out.length(static_cast<CORBA::ULong>(g.size()));
        for (size_t j = 0; j < g.size(); ++j) out[static_cast<CORBA::ULong>(j)] = *g[j];
    }
}

template class AccountServant<POA_Banking::Account>;
template class AccountServant<POA_Banking::SavingsAccount>;

CORBA::Float SavingsImpl::interest_rate() {
    std::lock_guard<std::mutex> hold(bank_.lock());
    return ledger_->interest_rate;
}

Banking::Money SavingsImpl::add_interest() {
    std::lock_guard<std::mutex> hold(bank_.lock());
    double interest = cents(ledger_->balance * ledger_->interest_rate / 100 / 12);
    if (interest > 0)
        BankImpl::book(*ledger_, today().c_str(), "Interest", Banking::INTEREST, interest);
    return money(interest, ledger_->currency);
}

// ---- the bank

BankImpl::BankImpl(PortableServer::POA_ptr poa, const std::string &name)
    : poa_(PortableServer::POA::_duplicate(poa)), name_(name) {
    properties_["bic"] <<= "ORBKCHZZ";
    properties_["daily_limit"] <<= money(5000, Banking::EUR);
}

void BankImpl::book(Ledger &ledger, const char *date, const char *text, Banking::EntryKind kind,
                    double amount) {
    ledger.balance = cents(ledger.balance + amount);
    Banking::Entry e;
    e.number = static_cast<CORBA::ULong>(ledger.entries.size() + 1);
    e.date = date;
    e.text = text;
    e.kind = kind;
    e.amount = money(amount, ledger.currency);
    e.balance_after = ledger.balance;
    ledger.entries.push_back(e);
}

std::shared_ptr<Ledger> BankImpl::find(const std::string &number) {
    auto it = accounts_.find(number);
    return it == accounts_.end() ? nullptr : it->second.ledger;
}

CORBA::Object_ptr BankImpl::reference_of(const std::string &number) {
    std::lock_guard<std::mutex> hold(lock_);
    auto it = accounts_.find(number);
    return it == accounts_.end() ? CORBA::Object::_nil()
                                 : CORBA::Object::_duplicate(it->second.ref);
}

std::shared_ptr<Ledger> BankImpl::new_ledger(const Banking::Customer &owner,
                                             Banking::CurrencyCode currency, double deposit) {
    if (deposit < 0 || deposit > 1e12 || static_cast<unsigned>(currency) > Banking::JPY)
        throw CORBA::BAD_PARAM(2, CORBA::COMPLETED_NO);
    auto ledger = std::make_shared<Ledger>();
    ledger->number = std::to_string(next_number_++);
    ledger->owner = owner.name.in();
    ledger->currency = currency;
    if (deposit > 0) book(*ledger, today().c_str(), "Opening deposit", Banking::CREDIT, deposit);
    return ledger;
}

CORBA::Object_ptr BankImpl::activate(std::shared_ptr<Ledger> ledger) {
    PortableServer::ServantBase *servant;
    if (ledger->savings)
        servant = new SavingsImpl(*this, ledger);
    else
        servant = new AccountImpl(*this, ledger);
    std::string id = "account/" + ledger->number;
    PortableServer::ObjectId_var oid = PortableServer::string_to_ObjectId(id.c_str());
    poa_->activate_object_with_id(oid, servant);
    servant->_remove_ref();  // the POA holds it now
    Opened opened{ledger, poa_->id_to_reference(oid)};
    CORBA::Object_ptr ref = CORBA::Object::_duplicate(opened.ref);
    accounts_[ledger->number] = opened;
    return ref;
}

void BankImpl::open_sample_accounts() {
    std::lock_guard<std::mutex> hold(lock_);
    Banking::Customer alice;
    alice.name = "Alice Martin";
    auto a = new_ledger(alice, Banking::EUR, 0);
    book(*a, "2024-01-05", "Opening deposit", Banking::CREDIT, 2000.00);
    book(*a, "2024-01-25", "Salary", Banking::CREDIT, 3200.00);
    book(*a, "2024-02-01", "Rent", Banking::DEBIT, -1450.00);
    book(*a, "2024-02-03", "Account fee", Banking::FEE, -4.50);
    book(*a, "2024-02-15", "Card payment", Banking::DEBIT, -89.90);
    book(*a, "2024-02-25", "Salary", Banking::CREDIT, 3200.00);
    book(*a, "2024-03-01", "Rent", Banking::DEBIT, -1450.00);
    book(*a, "2024-03-31", "Interest", Banking::INTEREST, 1.25);
    CORBA::release(activate(a));

    Banking::Customer bruno;
    bruno.name = "Bruno Weber";
    auto b = new_ledger(bruno, Banking::EUR, 0);
    book(*b, "2024-03-10", "Opening deposit", Banking::CREDIT, 150.00);
    CORBA::release(activate(b));

    Banking::Customer clara;
    clara.name = "Clara Rossi";
    auto c = new_ledger(clara, Banking::EUR, 0);
    c->savings = true;
    c->interest_rate = 1.5f;
    book(*c, "2024-01-02", "Opening deposit", Banking::CREDIT, 10000.00);
    CORBA::release(activate(c));
}

char *BankImpl::name() { return CORBA::string_dup(name_.c_str()); }

Banking::Account_ptr BankImpl::open_account(const Banking::Customer &owner,
                                            Banking::CurrencyCode currency,
                                            CORBA::Double initial_deposit) {
    std::lock_guard<std::mutex> hold(lock_);
    CORBA::Object_var ref = activate(new_ledger(owner, currency, initial_deposit));
    return Banking::Account::_narrow(ref);
}

Banking::SavingsAccount_ptr BankImpl::open_savings(const Banking::Customer &owner,
                                                   CORBA::Float interest_rate) {
    if (!(interest_rate >= 0 && interest_rate <= 100))
        throw CORBA::BAD_PARAM(3, CORBA::COMPLETED_NO);
    std::lock_guard<std::mutex> hold(lock_);
    auto ledger = new_ledger(owner, Banking::EUR, 0);
    ledger->savings = true;
    ledger->interest_rate = interest_rate;
    CORBA::Object_var ref = activate(ledger);
    return Banking::SavingsAccount::_narrow(ref);
}

Banking::Account_ptr BankImpl::find_account(const char *number) {
    std::lock_guard<std::mutex> hold(lock_);
    auto it = accounts_.find(number);
    if (it == accounts_.end()) throw Banking::UnknownAccount(number);
    return Banking::Account::_narrow(it->second.ref);
}

Banking::AccountList *BankImpl::accounts() {
    std::lock_guard<std::mutex> hold(lock_);
    Banking::AccountList_var out = new Banking::AccountList;
    out->length(static_cast<CORBA::ULong>(accounts_.size()));
    CORBA::ULong i = 0;
    for (auto &a : accounts_) out[i++] = Banking::Account::_narrow(a.second.ref);
    return out._retn();
}

Banking::Receipt BankImpl::book_transfer(const Banking::TransferOrder &order, const char *via) {
    auto from = find(order.from_account.in());
    if (!from) throw Banking::UnknownAccount(order.from_account.in());
    auto to = find(order.to_account.in());
    if (!to) throw Banking::UnknownAccount(order.to_account.in());
    if (from->frozen || to->frozen)
        throw Banking::AccountFrozen(from->frozen ? "payer's account is frozen"
                                                  : "payee's account is frozen");
    check_amount(order.amount);
    double debit = convert(order.amount.amount, order.amount.currency, from->currency);
    if (debit > from->balance)
        throw Banking::InsufficientFunds(money(from->balance, from->currency), order.amount);
    std::string text = std::string("Transfer ") + order.reference.in() + " (" + via + ")";
    std::string date = today();
    book(*from, date.c_str(), text.c_str(), Banking::DEBIT, -debit);
    book(*to, date.c_str(), text.c_str(), Banking::CREDIT,
         convert(order.amount.amount, order.amount.currency, to->currency));
    Banking::Receipt r;
    r.id = static_cast<CORBA::ULong>(next_receipt_++);
    r.booked = true;
    std::string msg = "booked " + std::to_string(order.amount.amount) + " from " + from->number +
                      " to " + to->number;
    r.message = msg.c_str();
    return r;
}

Banking::Receipt *BankImpl::transfer(const Banking::TransferOrder &order,
                                     const Banking::PaymentRoute &route) {
    static const char *const channels[] = {
        "branch", "ATM",   "online", "phone",          "mobile",       "cheque",
        "SEPA",   "SWIFT", "card",   "standing order", "direct debit", "cash"};
    unsigned d = static_cast<unsigned>(route._d());
    std::lock_guard<std::mutex> hold(lock_);
    return new Banking::Receipt(book_transfer(order, d < 12 ? channels[d] : "unknown"));
}

Banking::Receipts *BankImpl::transfer_batch(const Banking::TransferBatch &batch,
                                            CORBA::ULong &booked) {
    std::lock_guard<std::mutex> hold(lock_);
    Banking::Receipts_var out = new Banking::Receipts;
    out->length(batch.length());
    booked = 0;
    for (CORBA::ULong i = 0; i < batch.length(); ++i) {
        // A failed order is refused on its receipt; the batch goes on.
        try {
            out[i] = book_transfer(batch[i], "batch");
            ++booked;
        } catch (const Banking::UnknownAccount &e) {
            out[i].booked = false;
            out[i].message = (std::string("unknown account ") + e.number.in()).c_str();
        } catch (const Banking::InsufficientFunds &) {
            out[i].booked = false;
            out[i].message = "insufficient funds";
        } catch (const Banking::AccountFrozen &e) {
            out[i].booked = false;
            out[i].message = e.reason;
        } catch (const CORBA::BAD_PARAM &) {
            out[i].booked = false;
            out[i].message = "invalid amount";
        }
    }
    return out._retn();
}

void BankImpl::close_account(Banking::Account_ptr target, Banking::Money &payout) {
    if (CORBA::is_nil(target)) throw CORBA::BAD_PARAM(4, CORBA::COMPLETED_NO);
    CORBA::String_var number = target->number();  // also answers for accounts elsewhere
    std::lock_guard<std::mutex> hold(lock_);
    auto it = accounts_.find(number.in());
    if (it == accounts_.end()) throw Banking::UnknownAccount(number.in());
    payout = money(it->second.ledger->balance, it->second.ledger->currency);
    PortableServer::ObjectId_var oid =
        PortableServer::string_to_ObjectId(("account/" + it->first).c_str());
    poa_->deactivate_object(oid);
    accounts_.erase(it);
}

void BankImpl::audit(const char *who, const char *event) {
    std::lock_guard<std::mutex> hold(lock_);
    ++audits_;
    std::fprintf(stderr, "bank_server: audit %lu: %s: %s\n", audits_, who, event);
}

CORBA::ULong BankImpl::audit_count() {
    std::lock_guard<std::mutex> hold(lock_);
    return static_cast<CORBA::ULong>(audits_);
}

CORBA::Any *BankImpl::get_property(const char *key) {
    std::lock_guard<std::mutex> hold(lock_);
    auto it = properties_.find(key);
    if (it == properties_.end()) throw CORBA::BAD_PARAM(5, CORBA::COMPLETED_NO);
    return new CORBA::Any(it->second);
}

void BankImpl::set_property(const char *key, const CORBA::Any &value) {
    std::lock_guard<std::mutex> hold(lock_);
    properties_[key] = value;
}

}  // namespace demo
