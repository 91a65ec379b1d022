#pragma once

#include <MsgRxHandlerCb.h>

#include <iterator>
#include <set>
#include <vector>

/// The receivers of one channel and identifier key, in ascending pointer order: what the registry keeps in a set,
/// laid out for the receive thread. With thousands of identifiers every node of a set is a cache miss; here the one
/// receiver of the usual case lies beside the few words that lead to more.
///
/// Threads: the registry's lock guards the content; the address never changes.
class ReceiverList
{
public:
    /// Takes over the members of a set.
    void assign(const std::set<MsgRxHandlerCb*>& receivers)
    {
        if (receivers.empty()) {
            first = nullptr;
            others.clear();
            return;
        }
        others.assign(std::next(receivers.begin()), receivers.end());
        first = *receivers.begin();
    }

    template <typename Call>
    void forEach(Call call) const
    {
        if (first == nullptr) {
            return;
        }
        call(*first);
        for (MsgRxHandlerCb* const receiver : others) {
            call(*receiver);
        }
    }

private:
    MsgRxHandlerCb* first = nullptr; ///< null: there is none
    std::vector<MsgRxHandlerCb*> others;
};
