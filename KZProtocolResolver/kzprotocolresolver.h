/// \file kzprotocolresolver.h
/// The protocol resolver: typed messages in, framed bytes out, and back.
#ifndef KZRESOLVER_KZPROTOCOLRESOLVER_H
#define KZRESOLVER_KZPROTOCOLRESOLVER_H

#include "kzrecords.h"
#include "kzresolver_global.h"

#include <QByteArray>
#include <QDate>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

class KZProtocolResolverPrivate;

/// Translates between typed operations and the frames of the machine-fleet
/// LAN protocol. Create one resolver per connection.
///
/// **Sending.** Call a `lan…` encoder for each message: a request
/// (`lanLogin`, `lanAddUser`, …) or the reply to one that arrived
/// (`lanDeleteUserResponse`, …). Every finished frame is handed to the
/// callback registered with setParsePackResult(); a large message arrives
/// there as several frames, in the order to send them. The buffer passed to
/// that callback is the host's: free it with `free()` once sent.
///
/// **Receiving.** Pass every block of bytes read from the connection to
/// parseReceive(), cut wherever the network cut it. Each complete message is
/// decoded and reported through the callback registered for it:
/// `setLanXCB` for an incoming request, `setLanXResultCB` for an incoming
/// reply. Unset callbacks are skipped. Broken input (garbage, bad
/// checksums, oversized bodies, unknown method codes or types) is dropped,
/// at most with one debug line on the Qt logger, and counted in
/// statistics(); no error reaches a callback and no input can crash, hang
/// or grow memory without bound.
///
/// A message whose payload is shorter than its layout still reaches its
/// callback: the fields that are missing read as zero, empty text or
/// false. The data a decoder reads ends with the body's closing zero byte,
/// however, so a reply that lacks only its last flag byte reads that flag
/// from the zero, which on the wire means true: such a reply reports
/// success. Only a reply cut shorter than that reads the flag as false.
///
/// Callbacks are plain function pointers; their first argument is the
/// context pointer set with setReceiveData(). Values passed by reference
/// live only for the duration of the call.
///
/// **Threads.** The resolver owns no thread and no socket; everything runs
/// on the caller's thread. The rules:
/// - encoders of one resolver are called from one thread at a time (they
///   share the sequence counter); the pack-result callback runs inside the
///   encoder, on its thread;
/// - parseReceive() of one resolver is called from one thread at a time;
/// - sending and receiving may run on two different threads: one thread may
///   call encoders while another feeds parseReceive() on the same resolver;
/// - message callbacks run inside parseReceive(), on its thread, with the
///   resolver's event lock held. A callback may call encoders (to answer a
///   request, say), but only where no other thread is sending on that
///   resolver at the same time. A callback that calls parseReceive() on the
///   same resolver has its bytes processed after the current block, before
///   the outer call returns;
/// - the setters (context pointer, pack-result and message callbacks) are
///   not synchronised: call them before sending and receiving start;
/// - distinct resolvers share nothing and may run on any threads;
/// - a resolver may be deleted from inside any of its own callbacks (a
///   message callback, or the pack-result callback of an encoder): the
///   running callback finishes, no further callback of that resolver runs,
///   and whatever it still held (queued messages, pieces not yet handed
///   out, bytes not yet parsed) is freed when control leaves the resolver.
///   Do not touch the resolver after deleting it, and delete it only while
///   no other thread is using it. deleteLater() works as for any QObject;
/// - statistics() may be called from any thread at any time.
///
/// **Lifetime.** A resolver constructed with a parent is deleted with it,
/// like any QObject child; it is the parent's only child that the
/// resolver adds (its private state is owned by the resolver alone), so
/// reparenting it with setParent() or deleting the children by hand is safe.
///
/// **Drops and diagnostics.** Everything the resolver throws away is
/// counted by reason (statistics()), and each drop is one debug line on the
/// logging category `kz.resolver` with its reason and sizes. The category
/// is quiet by default; `QT_LOGGING_RULES="kz.*=true"` (or
/// QLoggingCategory::setFilterRules()) turns its lines on. Encoders warn on
/// the same category, once per message, when a value cannot arrive as it
/// was given: a list or map of more than 32767 entries (counts travel as 16
/// bits and are read back as signed), a text of 32767 bytes or more in a
/// length-prefixed field, or a message body over the 16 MiB that a receiver
/// accepts by default. The bytes sent are the protocol's all the same.
///
/// Typical host:
/// \code
/// static void onFrame(void* ctx, char* bytes, int n) {
///     static_cast<QTcpSocket*>(ctx)->write(bytes, n);
///     free(bytes);
/// }
/// static void onLoginResult(void*, bool ok, int code, bool bit0, bool second) { … }
///
/// KZProtocolResolver r;
/// r.setReceiveData(&socket);
/// r.setParsePackResult(onFrame);
/// r.setLanLoginResultCB(onLoginResult);
/// QObject::connect(&socket, &QTcpSocket::readyRead, [&] { r.parseReceive(socket.readAll()); });
/// r.lanLogin("operator", "secret");
/// \endcode
class KZRESOLVER_EXPORT KZProtocolResolver : public QObject
{
    Q_OBJECT

public:
    /// Receives every packed outgoing frame: send the first `length` bytes.
    /// `bytes` was allocated with `malloc()` and is now the host's to free.
    /// `length` is 0 when the frame could not be packed (a frame capacity
    /// too small for the frame's header); send nothing then, but free it.
    using PackResultCB = void (*)(void* ctx, char* bytes, int length);
    /// Stored for the host; the resolver never calls it.
    using SendFailDisconnectCB = void (*)(void* ctx);

    /// Creates a resolver whose frames are at most `frameCapacity` bytes
    /// (below 1: the default of 2048). Bodies that do not fit are split
    /// into several frames; the receiving side reassembles them.
    explicit KZProtocolResolver(int frameCapacity = 0, QObject* parent = nullptr);
    ~KZProtocolResolver() override;

    KZProtocolResolver(const KZProtocolResolver&) = delete;
    KZProtocolResolver& operator=(const KZProtocolResolver&) = delete;

    /// Sets the context pointer passed as first argument to every callback.
    void setReceiveData(void* ctx);
    /// The context pointer set with setReceiveData() (null by default).
    void* receiveData() const;
    /// Sets the callback that receives every outgoing frame. Without one,
    /// encoders still run (and advance the sequence counter) but their
    /// frames are discarded.
    void setParsePackResult(PackResultCB fn);
    /// Stores a callback for the host's own use; the resolver never calls it.
    void setSendFailDisconnectCB(SendFailDisconnectCB fn);
    /// Stores the account name of this connection (for the host's use).
    void setAccount(const QString& account);
    /// The account name stored with setAccount() (empty by default).
    QString getAccount() const;
    /// Does nothing; callbacks, account and context stay as they are.
    void clear();

    /// Feeds bytes received from the connection. Frames may be cut anywhere
    /// and several may arrive at once; every message completed by these
    /// bytes is decoded and its callback called before this returns.
    void parseReceive(QByteArray bytes);

    /// Why received bytes were thrown away (index of Statistics::drops).
    enum DropReason {
        /// A frame header that contradicts itself (a piece without data,
        /// past its body's end, or with an attr text after the first piece).
        DropBadHeader,
        /// A body larger than the receive limit (16 MiB); a split body is
        /// counted once.
        DropOversizedBody,
        /// A frame whose checksum does not match its bytes (corrupted).
        DropBadChecksum,
        /// A piece of a split body whose first piece never arrived.
        DropOrphanPiece,
        /// A split body broken by a missing or misplaced piece.
        DropPieceOutOfOrder,
        /// An unfinished split body, replaced by a new start of the same
        /// body or discarded to make room for others.
        DropUnfinishedBody,
        /// Bytes the frame layer could not store (memory ran out).
        DropOutOfMemory,
        /// A frame that carries no body at all.
        DropEmptyBody,
        /// A body shorter than its 4-byte message header.
        DropShortBody,
        /// A body whose type byte is not the protocol's message type.
        DropUnknownType,
        /// A method code that this library does not know.
        DropUnknownMethod,
        DropReasonCount
    };

    /// What a resolver received and what it threw away, counted since its
    /// construction. The counts are always kept; reading them is cheap.
    struct Statistics
    {
        /// Bytes handed to parseReceive().
        quint64 bytesReceived = 0;
        /// Frames (whole bodies or pieces of split ones) that passed their
        /// checks.
        quint64 framesAccepted = 0;
        /// Messages handed to the decoder of their method code (its
        /// callback is called when set and when the flag selects a
        /// direction the message has).
        quint64 messagesDispatched = 0;
        /// Bytes passed over while looking for frames: noise between
        /// frames and the bytes of frames that failed a check. Bytes still
        /// waiting for the rest of their frame are not counted yet.
        quint64 garbageBytes = 0;
        /// Frames, pieces and messages thrown away, by DropReason.
        quint64 drops[DropReasonCount] = {};

        /// All drops, whatever their reason.
        quint64 totalDrops() const
        {
            quint64 n = 0;
            for (quint64 d : drops) n += d;
            return n;
        }
    };

    /// The counts of this resolver so far. Callable from any thread; while
    /// another thread is parsing, the counts are each current but not
    /// necessarily of the same instant.
    Statistics statistics() const;
    /// A short text for a drop reason ("frame checksum mismatch", ...), as
    /// the `kz.resolver` log lines write it; null for an unknown value.
    static const char* dropReasonText(DropReason reason);

    /// \name Session: login and logout
    /// The password travels AES-128-CBC enciphered under a key the library
    /// derives at run time; the receiving resolver deciphers it.
    ///@{
    using LanLoginCB = void (*)(void* ctx, const QString& account, const QString& password);
    using LanLoginResultCB = void (*)(void* ctx, bool first, int code, bool codeBit0, bool second);
    using LanLogoutCB = void (*)(void* ctx, int value);

    /// Sends a login request with the password enciphered.
    void lanLogin(const QString& account, const QString& password);
    /// Answers a login. The receiver gets `code` with bit 0 cleared, and
    /// bit 0 separately as `codeBit0`.
    void lanLoginResult(bool first, int code, bool second);
    /// Announces a logout.
    void lanLogout(int value);
    /// Called for a login request; the password arrives deciphered (cut at
    /// its first zero byte; cipher padding bytes 1..15 stay at its end).
    void setLanLoginCB(LanLoginCB fn);
    /// Called for a login reply.
    void setLanLoginResultCB(LanLoginResultCB fn);
    /// Called for a logout.
    void setLanLogoutCB(LanLogoutCB fn);
    ///@}

    /// \name Users
    /// The user accounts: adding, deleting and editing users, their
    /// permission value and visible groups, and the full user list.
    ///@{
    using LanAddUserCB = void (*)(void* ctx, const QString& name, const QString& text2,
                                  const QString& text3, const QString& lv1Group,
                                  const QString& lv2Group, bool flag);
    using LanAddUserResultCB = void (*)(void* ctx, const user_info& user);
    using LanDeleteUserCB = void (*)(void* ctx, const QStringList& names);
    using LanDeleteUserResultCB = void (*)(void* ctx, bool ok, const QStringList& names);
    using LanUpdateClientCB = void (*)(void* ctx, const QString& s1, const QString& s2,
                                       const QString& s3, const QString& s4, const QString& s5,
                                       const QString& s6, bool b1, bool b2);
    using LanUpdateClientResultCB = void (*)(void* ctx, bool ok, const QString& s1,
                                             const QString& s2, const QString& s3,
                                             const QString& s4, const QString& s5,
                                             const QString& s6, bool b1, bool b2);
    using LanUpdateUserPermissionCB = void (*)(void* ctx, const QString& name, int permission);
    using LanUpdateUserPermissionResultCB = void (*)(void* ctx, bool ok, const QString& name,
                                                     int permission);
    using LanUpdateUserGroupPermissionCB = void (*)(void* ctx, const QString& name,
                                                    const QMap<QString, QStringList>& groups);
    using LanUpdateUserGroupPermissionResultCB = void (*)(void* ctx, bool ok, const QString& name,
                                                          const QMap<QString, QStringList>& groups);
    using LanUserInfoCB = void (*)(void* ctx, const QList<user_info>& users);

    /// Asks to add a user to the group pair (lv1Group, lv2Group).
    void lanAddUser(const QString& name, const QString& text2, const QString& text3,
                    const QString& lv1Group, const QString& lv2Group, bool flag);
    /// Answers an added user with the record as stored (no success flag).
    void lanAddUserResult(const user_info& user);
    /// Asks to delete users.
    void lanDeleteUser(const QStringList& names);
    /// Answers a user deletion.
    void lanDeleteUserResponse(bool ok, const QStringList& names);
    /// Asks to update a client account (six strings and two flags).
    void lanUpdateClient(const QString& s1, const QString& s2, const QString& s3, const QString& s4,
                         const QString& s5, const QString& s6, bool b1, bool b2);
    /// Answers a client update.
    void lanUpdateClientResponse(bool ok, const QString& s1, const QString& s2, const QString& s3,
                                 const QString& s4, const QString& s5, const QString& s6, bool b1,
                                 bool b2);
    /// Asks to set a user's permission value.
    void lanUpdateUserPermission(const QString& name, int permission);
    /// Answers a permission change.
    void lanUpdateUserPermissionResponse(bool ok, const QString& name, int permission);
    /// Asks to set the groups a user may see (first-level name to its
    /// second-level names).
    void lanUpdateUserGroupPermission(const QString& name,
                                      const QMap<QString, QStringList>& groups);
    /// Answers a change of visible groups.
    void lanUpdateUserGroupPermissionResponse(bool ok, const QString& name,
                                              const QMap<QString, QStringList>& groups);
    /// Pushes the user list, grouped by (lv1Group, lv2Group) in order of
    /// first appearance; a repeated name within one group pair is sent once
    /// (the first record wins). There is no reply.
    void lanUserInfo(const QList<user_info>& users);
    /// Called for a request to add a user.
    void setLanAddUserCB(LanAddUserCB fn);
    /// Called for an added user.
    void setLanAddUserResultCB(LanAddUserResultCB fn);
    /// Called for a request to delete users.
    void setLanDeleteUserCB(LanDeleteUserCB fn);
    /// Called for a deletion reply.
    void setLanDeleteUserResultCB(LanDeleteUserResultCB fn);
    /// Called for a request to update a client account.
    void setLanUpdateClientCB(LanUpdateClientCB fn);
    /// Called for a client update reply.
    void setLanUpdateClientResultCB(LanUpdateClientResultCB fn);
    /// Called for a request to set a user's permission value.
    void setLanUpdateUserPermissionCB(LanUpdateUserPermissionCB fn);
    /// Called for a permission change reply.
    void setLanUpdateUserPermissionResultCB(LanUpdateUserPermissionResultCB fn);
    /// Called for a request to set a user's visible groups.
    void setLanUpdateUserGroupPermissionCB(LanUpdateUserGroupPermissionCB fn);
    /// Called for a visible-groups reply.
    void setLanUpdateUserGroupPermissionResultCB(LanUpdateUserGroupPermissionResultCB fn);
    /// Called for a user list, flattened back in payload order (group by
    /// group), each record with its two group names.
    void setLanUserInfoCB(LanUserInfoCB fn);
    ///@}

    /// \name Groups and ordering
    /// The two-level group tree (first-level groups holding second-level
    /// groups): creating groups, reports of renamed, removed and reordered
    /// groups, reordering items, and moving users, machines and operators
    /// between groups.
    ///@{
    using LanAddGroupCB = void (*)(void* ctx, const QStringList& lv1Names,
                                   const QMap<QString, QStringList>& lv2ByLv1);
    using LanAddGroupResultCB = void (*)(void* ctx);
    using LanRemoveLv1GroupResultCB = void (*)(void* ctx, const QString& a);
    using LanRemoveLv2GroupResultCB = void (*)(void* ctx, const QString& a, const QString& b);
    using LanUpdateLv1GroupResultCB = void (*)(void* ctx, const QString& a, const QString& b);
    using LanUpdateLv2GroupResultCB = void (*)(void* ctx, const QString& a, const QString& b,
                                               const QString& c);
    using LanSortGroupResultCB = void (*)(void* ctx, const QString& a, const QStringList& items);
    using LanSortItemCB = void (*)(void* ctx, const QString& a, const QString& b,
                                   const QStringList& items);
    using LanSortItemResultCB = void (*)(void* ctx, bool ok, const QString& a, const QString& b,
                                         const QStringList& items);
    using LanMoveUserToGroupCB = void (*)(void* ctx, const QStringList& names, const QString& lv1,
                                          const QString& lv2);
    using LanMoveUserToGroupResultCB = void (*)(void* ctx, bool ok, const QStringList& names,
                                                const QString& lv1, const QString& lv2);
    using LanMoveMacToGroupCB = LanMoveUserToGroupCB;
    using LanMoveMacToGroupResultCB = LanMoveUserToGroupResultCB;
    using LanMoveOperatorToGroupCB = LanMoveUserToGroupCB;
    using LanMoveOperatorToGroupResultCB = LanMoveUserToGroupResultCB;

    /// Asks to create groups: the first-level names in order, each with the
    /// second-level names that `lv2ByLv1` holds for it (none if it has no
    /// entry). Map entries for names not in the list are not sent.
    void lanAddGroup(const QStringList& lv1Names, const QMap<QString, QStringList>& lv2ByLv1);
    /// Acknowledges created groups (empty payload).
    void lanAddGroupResponse();
    /// Reports a removed first-level group.
    void lanRemoveLv1GroupResponse(const QString& a);
    /// Reports a removed second-level group (first-level name, second-level name).
    void lanRemoveLv2GroupResponse(const QString& a, const QString& b);
    /// Reports a renamed first-level group (old name, new name).
    void lanUpdateLv1GroupResponse(const QString& a, const QString& b);
    /// Reports a renamed second-level group (first-level name, old name, new name).
    void lanUpdateLv2GroupResponse(const QString& a, const QString& b, const QString& c);
    /// Reports reordered groups: the scope and the items in their new order.
    void lanSortGroupResponse(const QString& a, const QStringList& items);
    /// Asks to reorder the items of a scope (a, b).
    void lanSortItem(const QString& a, const QString& b, const QStringList& items);
    /// Answers a reordering.
    void lanSortItemResponse(bool ok, const QString& a, const QString& b, const QStringList& items);
    /// Asks to move users to the group pair (lv1, lv2).
    void lanMoveUserToGroup(const QStringList& names, const QString& lv1, const QString& lv2);
    /// Answers a user move.
    void lanMoveUserToGroupResponse(bool ok, const QStringList& names, const QString& lv1,
                                    const QString& lv2);
    /// Asks to move machines to the group pair (lv1, lv2).
    void lanMoveMacToGroup(const QStringList& macs, const QString& lv1, const QString& lv2);
    /// Answers a machine move.
    void lanMoveMacToGroupResponse(bool ok, const QStringList& macs, const QString& lv1,
                                   const QString& lv2);
    /// Asks to move operators to the group pair (lv1, lv2).
    void lanMoveOperatorToGroup(const QStringList& operators, const QString& lv1,
                                const QString& lv2);
    /// Answers an operator move.
    void lanMoveOperatorToGroupResponse(bool ok, const QStringList& operators, const QString& lv1,
                                        const QString& lv2);
    /// Called for a request to create groups; every name sent maps to its
    /// list, an empty one included.
    void setLanAddGroupCB(LanAddGroupCB fn);
    /// Called for a group-creation acknowledgement.
    void setLanAddGroupResultCB(LanAddGroupResultCB fn);
    /// Called for a removed first-level group.
    void setLanRemoveLv1GroupResultCB(LanRemoveLv1GroupResultCB fn);
    /// Called for a removed second-level group.
    void setLanRemoveLv2GroupResultCB(LanRemoveLv2GroupResultCB fn);
    /// Called for a renamed first-level group.
    void setLanUpdateLv1GroupResultCB(LanUpdateLv1GroupResultCB fn);
    /// Called for a renamed second-level group.
    void setLanUpdateLv2GroupResultCB(LanUpdateLv2GroupResultCB fn);
    /// Called for reordered groups.
    void setLanSortGroupResultCB(LanSortGroupResultCB fn);
    /// Called for a request to reorder items.
    void setLanSortItemCB(LanSortItemCB fn);
    /// Called for a reordering reply.
    void setLanSortItemResultCB(LanSortItemResultCB fn);
    /// Called for a request to move users.
    void setLanMoveUserToGroupCB(LanMoveUserToGroupCB fn);
    /// Called for a user move reply.
    void setLanMoveUserToGroupResultCB(LanMoveUserToGroupResultCB fn);
    /// Called for a request to move machines.
    void setLanMoveMacToGroupCB(LanMoveMacToGroupCB fn);
    /// Called for a machine move reply.
    void setLanMoveMacToGroupResultCB(LanMoveMacToGroupResultCB fn);
    /// Called for a request to move operators.
    void setLanMoveOperatorToGroupCB(LanMoveOperatorToGroupCB fn);
    /// Called for an operator move reply.
    void setLanMoveOperatorToGroupResultCB(LanMoveOperatorToGroupResultCB fn);
    ///@}

    /// \name Operators
    /// The people who work at the machines: adding them one by one or in
    /// bulk, editing and deleting them, their login state, the full table.
    ///@{
    using LanAddOperatorUserCB = void (*)(void* ctx, const QString& s1, const QString& s2,
                                          const QString& s3, const QString& s4, const QString& s5);
    using LanAddOperatorUserResultCB = void (*)(void* ctx, bool ok, const QString& s1,
                                                const QString& s2, const QString& s3,
                                                const QString& s4, const QString& s5, bool b1,
                                                bool b2);
    using LanAddOperatorUsersCB = void (*)(void* ctx, const QList<QVariant>& rows);
    using LanAddOperatorUsersResultCB = void (*)(void* ctx, bool ok, const QList<QVariant>& rows);
    using LanUpdateOperatorCB = void (*)(void* ctx, const QString& s1, const QString& s2,
                                         const QString& s3, const QString& s4, const QString& s5,
                                         bool b1, bool b2);
    using LanUpdateOperatorResultCB = void (*)(void* ctx, bool ok, const QString& s1,
                                               const QString& s2, const QString& s3,
                                               const QString& s4, const QString& s5, bool b1,
                                               bool b2);
    using LanUpdateOperatorUserLoginResultCB = void (*)(void* ctx, const QString& name, bool state);
    using LanDeleteOperatorUserCB = void (*)(void* ctx, const QStringList& names);
    using LanDeleteOperatorUserResultCB = void (*)(void* ctx, bool ok, const QStringList& names);
    using LanOperatorUserInfoCB = void (*)(void* ctx, const QStringList& order,
                                           const QMap<QString, operator_user>& table);

    /// Asks to add an operator (the five operator strings, name first).
    void lanAddOperatorUser(const QString& s1, const QString& s2, const QString& s3,
                            const QString& s4, const QString& s5);
    /// Answers an added operator.
    void lanAddOperatorUserResponse(bool ok, const QString& s1, const QString& s2,
                                    const QString& s3, const QString& s4, const QString& s5,
                                    bool b1, bool b2);
    /// Asks to add operators in bulk: each row is a QVariantList whose first
    /// five items are sent as text (missing items as empty text).
    void lanAddOperatorUsers(const QList<QVariant>& rows);
    /// Answers a bulk addition.
    void lanAddOperatorUsersResponse(bool ok, const QList<QVariant>& rows);
    /// Asks to update an operator (five strings, two flags).
    void lanUpdateOperator(const QString& s1, const QString& s2, const QString& s3,
                           const QString& s4, const QString& s5, bool b1, bool b2);
    /// Answers an operator update.
    void lanUpdateOperatorResponse(bool ok, const QString& s1, const QString& s2, const QString& s3,
                                   const QString& s4, const QString& s5, bool b1, bool b2);
    /// Reports an operator's login state.
    void lanUpdateOperatorUserLoginResponse(const QString& name, bool state);
    /// Asks to delete operators.
    void lanDeleteOperatorUser(const QStringList& names);
    /// Answers an operator deletion.
    void lanDeleteOperatorUserResponse(bool ok, const QStringList& names);
    /// Pushes the operator table: one entry per name of `order`, in that
    /// order, with the record `table` holds under it (a default record if
    /// none) and the name from `order`. There is no reply.
    void lanOperatorUserInfo(const QStringList& order, const QMap<QString, operator_user>& table);
    /// Called for a request to add an operator.
    void setLanAddOperatorUserCB(LanAddOperatorUserCB fn);
    /// Called for an added-operator reply.
    void setLanAddOperatorUserResultCB(LanAddOperatorUserResultCB fn);
    /// Called for a bulk addition; each row arrives as a QVariantList of
    /// five QString items.
    void setLanAddOperatorUsersCB(LanAddOperatorUsersCB fn);
    /// Called for a bulk addition reply (rows as for the request).
    void setLanAddOperatorUsersResultCB(LanAddOperatorUsersResultCB fn);
    /// Called for a request to update an operator.
    void setLanUpdateOperatorCB(LanUpdateOperatorCB fn);
    /// Called for an operator update reply.
    void setLanUpdateOperatorResultCB(LanUpdateOperatorResultCB fn);
    /// Called for an operator's login state.
    void setLanUpdateOperatorUserLoginResultCB(LanUpdateOperatorUserLoginResultCB fn);
    /// Called for a request to delete operators.
    void setLanDeleteOperatorUserCB(LanDeleteOperatorUserCB fn);
    /// Called for an operator deletion reply.
    void setLanDeleteOperatorUserResultCB(LanDeleteOperatorUserResultCB fn);
    /// Called for an operator table: the names in payload order and each
    /// record under its name.
    void setLanOperatorUserInfoCB(LanOperatorUserInfoCB fn);
    ///@}

    /// \name Permissions
    /// Per-machine permission entries: querying, adding, editing, deleting
    /// them, and the outcome of setting them. Power values are 32-bit words
    /// laid out as fctp_user2_power.
    ///@{
    using LanQueryPermissionCB = void (*)(void* ctx, const QStringList& keys);
    using LanQueryPermissionResultCB = void (*)(void* ctx, const QList<mac_user_power>& entries);
    using LanAddPermissionCB = void (*)(void* ctx, const QStringList& keys, const QString& target,
                                        unsigned int power);
    using LanEditPermissionCB = void (*)(void* ctx, const QMap<QString, QStringList>& scope,
                                         const QString& target, unsigned int power);
    using LanDelPermissionCB = void (*)(void* ctx, const QMap<QString, QStringList>& scope);
    using LanSetPermissionResultCB = void (*)(void* ctx, bool ok, const QString& target,
                                              const QMap<QString, fctp_user2_power>& powers);

    /// Asks for the permission entries of `keys`.
    void lanQueryPermission(const QStringList& keys);
    /// Answers a permission query.
    void lanQueryPermissionResult(const QList<mac_user_power>& entries);
    /// Asks to add a permission for `target` on `keys`.
    void lanAddPermission(const QStringList& keys, const QString& target, unsigned int power);
    /// Asks to edit the permission of `target` in `scope` (first-level group
    /// to its second-level groups).
    void lanEditPermission(const QMap<QString, QStringList>& scope, const QString& target,
                           unsigned int power);
    /// Asks to delete the permissions in `scope`.
    void lanDelPermission(const QMap<QString, QStringList>& scope);
    /// Reports the outcome of setting permissions. Goes out with the request
    /// flag: this message has no request form.
    void lanSetPermissionResult(bool ok, const QString& target,
                                const QMap<QString, fctp_user2_power>& powers);
    /// Called for a permission query.
    void setLanQueryPermissionCB(LanQueryPermissionCB fn);
    /// Called for a permission query reply.
    void setLanQueryPermissionResultCB(LanQueryPermissionResultCB fn);
    /// Called for a request to add a permission.
    void setLanAddPermissionCB(LanAddPermissionCB fn);
    /// Called for a request to edit a permission.
    void setLanEditPermissionCB(LanEditPermissionCB fn);
    /// Called for a request to delete permissions.
    void setLanDelPermissionCB(LanDelPermissionCB fn);
    /// Called for the outcome of setting permissions, whichever flag the
    /// peer sent it with (this library sends the request flag).
    void setLanSetPermissionResultCB(LanSetPermissionResultCB fn);
    ///@}

    /// \name Machine registry
    /// The machines known to the server, filed in the same two-level group
    /// tree as users; adding, editing, deleting and logging in machines.
    ///@{
    using LanMacInfoCB = void (*)(void* ctx, const QList<mac_info>& macs);
    using LanMacInfoResultCB = void (*)(void* ctx);
    using LanAddNewMacResultCB = void (*)(void* ctx, const mac_info& mac);
    using LanEditMacCB = void (*)(void* ctx, const QString& a, const QString& b);
    using LanDeleteMacCB = void (*)(void* ctx, const QStringList& macs);
    using LanDeleteMacResultCB = void (*)(void* ctx, bool ok, const QStringList& macs);
    using LanMacLoginResultCB = void (*)(void* ctx, const QString& mac);

    /// Sends the machine list grouped by (lv1Group, lv2Group) in order of
    /// first appearance; a repeated mac within one group pair is sent once
    /// (the first record wins).
    void lanMacInfo(const QList<mac_info>& macs);
    /// Acknowledges a machine list (empty payload).
    void lanMacInfoResponse();
    /// Reports a newly added machine (`value7` is not carried).
    void lanAddNewMacResponse(const mac_info& mac);
    /// Edits a machine (most likely: a machine and its new value).
    void lanEditMac(const QString& a, const QString& b);
    /// Asks to delete machines.
    void lanDeleteMac(const QStringList& macs);
    /// Answers a machine deletion.
    void lanDeleteMacResponse(bool ok, const QStringList& macs);
    /// Acknowledges a machine's login.
    void lanMacLoginResponse(const QString& mac);
    /// Called for a machine list, in payload order, repeated macs of a group
    /// pair skipped.
    void setLanMacInfoCB(LanMacInfoCB fn);
    /// Called for a machine-list acknowledgement.
    void setLanMacInfoResultCB(LanMacInfoResultCB fn);
    /// Called for a new machine; its `value7` is 0 and `code` keeps the low
    /// 8 bits of the number sent.
    void setLanAddNewMacResultCB(LanAddNewMacResultCB fn);
    /// Called for a machine edit.
    void setLanEditMacCB(LanEditMacCB fn);
    /// Called for a deletion request.
    void setLanDeleteMacCB(LanDeleteMacCB fn);
    /// Called for a deletion reply.
    void setLanDeleteMacResultCB(LanDeleteMacResultCB fn);
    /// Called for a machine-login acknowledgement.
    void setLanMacLoginResultCB(LanMacLoginResultCB fn);
    ///@}

    /// \name Machine status reports
    /// State, work log, alarm and abnormal-event counts, run times, daily
    /// totals, axis speed, bobbin thread and plan changes of machines.
    ///@{
    using LanMacStateResultCB = void (*)(void* ctx, const QString& a, const QString& b,
                                         unsigned char state, const QString& c);
    using LanMacWorkLogCB = void (*)(void* ctx, const QString& a, const QString& b,
                                     const QString& c, const QList<work_log>& logs,
                                     const QMap<QString, int>& counts,
                                     const QMap<QString, oee_process_data>& processes);
    using LanMacWorkLogResultCB = void (*)(void* ctx);
    using LanMacAbnormalResultCB = void (*)(void* ctx, const QString& a, const QString& b,
                                            const QMap<int, int>& counts, const QString& c, int n);
    using LanMacAlarmLogResultCB = void (*)(void* ctx, const QString& a, const QString& b,
                                            const QMap<QString, int>& counts);
    using LanMacDateTotalCB = void (*)(void* ctx, const QMap<QString, int>& totals);
    using LanMacRunTimeResultCB = void (*)(void* ctx, const QString& a, const QString& b,
                                           const QMap<QString, int>& times);
    using LanMacUpdateAxisSpeedResultCB = void (*)(void* ctx, const QString& mac, int speed);
    using LanMacUpdateBobbinThreadResultCB = void (*)(void* ctx, const QString& mac, int x, int y);
    using LanUpdateMacPlanResultCB = void (*)(void* ctx, const QString& a, const QString& b, int n);

    /// Reports a machine's state (a raw byte, not a boolean).
    void lanMacStateResponse(const QString& a, const QString& b, unsigned char state,
                             const QString& c);
    /// Sends a work log with its per-process figures and its counts. The
    /// figures travel as text with six significant digits. Sends nothing
    /// when the log's 16-bit count is 0 (an empty log, or 65536 entries);
    /// of each entry value6 and value7 are not carried.
    void lanMacWorkLog(const QString& a, const QString& b, const QString& c,
                       const QList<work_log>& logs, const QMap<QString, int>& counts,
                       const QMap<QString, oee_process_data>& processes);
    /// Acknowledges a work log (empty payload).
    void lanMacWorkLogResponse();
    /// Reports abnormal-event counts by event key.
    void lanMacAbnormalResponse(const QString& a, const QString& b, const QMap<int, int>& counts,
                                const QString& c, int n);
    /// Reports alarm counts.
    void lanMacAlarmLogResponse(const QString& a, const QString& b,
                                const QMap<QString, int>& counts);
    /// Sends daily totals.
    void lanMacDateTotal(const QMap<QString, int>& totals);
    /// Reports run times.
    void lanMacRunTimeResponse(const QString& a, const QString& b, const QMap<QString, int>& times);
    /// Reports a machine's new axis speed.
    void lanMacUpdateAxisSpeedResponse(const QString& mac, int speed);
    /// Reports a machine's bobbin-thread change.
    void lanMacUpdateBobbinThreadResponse(const QString& mac, int x, int y);
    /// Reports a plan change of a machine.
    void lanUpdateMacPlanResponse(const QString& a, const QString& b, int n);
    /// Called for a state report.
    void setLanMacStateResultCB(LanMacStateResultCB fn);
    /// Called for a work log; the figures arrive rounded to six significant
    /// digits, value6 and value7 of each entry are 0.
    void setLanMacWorkLogCB(LanMacWorkLogCB fn);
    /// Called for a work-log acknowledgement.
    void setLanMacWorkLogResultCB(LanMacWorkLogResultCB fn);
    /// Called for abnormal-event counts.
    void setLanMacAbnormalResultCB(LanMacAbnormalResultCB fn);
    /// Called for alarm counts.
    void setLanMacAlarmLogResultCB(LanMacAlarmLogResultCB fn);
    /// Called for daily totals.
    void setLanMacDateTotalCB(LanMacDateTotalCB fn);
    /// Called for run times.
    void setLanMacRunTimeResultCB(LanMacRunTimeResultCB fn);
    /// Called for an axis-speed report.
    void setLanMacUpdateAxisSpeedResultCB(LanMacUpdateAxisSpeedResultCB fn);
    /// Called for a bobbin-thread report.
    void setLanMacUpdateBobbinThreadResultCB(LanMacUpdateBobbinThreadResultCB fn);
    /// Called for a plan-change report.
    void setLanUpdateMacPlanResultCB(LanUpdateMacPlanResultCB fn);
    ///@}

    /// \name Remote panel
    /// Operating a machine's panel over the LAN: remote mode, screen
    /// touches, and the panel's page, attribute, image and screen data as
    /// opaque blocks. A block whose declared size exceeds the data received
    /// arrives cut at the end of the data.
    ///@{
    using LanRemoteSetModeCB = void (*)(void* ctx, const QString& mac, int mode);
    using LanRemoteSetModeResultCB = void (*)(void* ctx, bool ok, const QString& mac, int valueA,
                                              int valueB, int valueC);
    using LanRemoteScreenTouchCB = void (*)(void* ctx, const QString& mac, unsigned char kind,
                                            unsigned short x, unsigned short y);
    using LanRemoteUpdatePageResultCB = void (*)(void* ctx, const QString& mac, unsigned int page);
    using LanRemoteUpdateAttrResultCB = void (*)(void* ctx, const QString& mac,
                                                 const QByteArray& data);
    using LanRemoteUpdateImageResultCB = void (*)(void* ctx, const QString& mac,
                                                  const QByteArray& data);
    using LanRemoteUpdateScreenResultCB = void (*)(void* ctx, const QString& mac,
                                                   const QByteArray& data);

    /// Switches a machine's panel mode.
    void lanRemoteSetMode(const QString& mac, int mode);
    /// Answers a mode switch (the success byte leads this payload).
    void lanRemoteSetModeResponse(bool ok, const QString& mac, int valueA, int valueB, int valueC);
    /// Touches the panel's screen at (x, y).
    void lanRemoteScreenTouch(const QString& mac, unsigned char kind, unsigned short x,
                              unsigned short y);
    /// Reports the panel's page.
    void lanRemoteUpdatePageResponse(const QString& mac, unsigned int page);
    /// Sends the panel's attribute data, untouched.
    void lanRemoteUpdateAttrResponse(const QString& mac, const QByteArray& data);
    /// Sends a panel image, untouched.
    void lanRemoteUpdateImageResponse(const QString& mac, const QByteArray& data);
    /// Sends the panel's screen contents, untouched.
    void lanRemoteUpdateScreenResponse(const QString& mac, const QByteArray& data);
    /// Called for a mode switch.
    void setLanRemoteSetModeCB(LanRemoteSetModeCB fn);
    /// Called for a mode-switch reply.
    void setLanRemoteSetModeResultCB(LanRemoteSetModeResultCB fn);
    /// Called for a screen touch.
    void setLanRemoteScreenTouchCB(LanRemoteScreenTouchCB fn);
    /// Called for a page report.
    void setLanRemoteUpdatePageResultCB(LanRemoteUpdatePageResultCB fn);
    /// Called for attribute data.
    void setLanRemoteUpdateAttrResultCB(LanRemoteUpdateAttrResultCB fn);
    /// Called for an image.
    void setLanRemoteUpdateImageResultCB(LanRemoteUpdateImageResultCB fn);
    /// Called for screen contents.
    void setLanRemoteUpdateScreenResultCB(LanRemoteUpdateScreenResultCB fn);
    ///@}

    // Plans and OEE, machine files, logs and statistics: their sections go here.

private:
    KZProtocolResolverPrivate* d;
    friend class KZProtocolResolverPrivate;
};

#endif // KZRESOLVER_KZPROTOCOLRESOLVER_H
