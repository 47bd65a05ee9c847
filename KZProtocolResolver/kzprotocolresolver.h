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
    /// Sets the largest message body accepted from now on, whole or
    /// reassembled from pieces, in bytes (16 MiB unless set; values below 1
    /// are ignored). Larger bodies are dropped without being stored
    /// (DropOversizedBody). A server, for instance, accepts only small
    /// bodies until a client has logged in. Called from one of this
    /// resolver's callbacks, the limit applies from the next block passed
    /// to parseReceive(); call it on the thread that calls parseReceive().
    void setMaxReceiveBody(int bytes);
    /// The limit set with setMaxReceiveBody().
    int maxReceiveBody() const;

    /// Why received bytes were thrown away (index of Statistics::drops).
    enum DropReason {
        /// A frame header that contradicts itself (a piece without data,
        /// past its body's end, or with an attr text after the first piece).
        DropBadHeader,
        /// A body larger than the receive limit (setMaxReceiveBody()); a split body is
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
        /// The number of reasons (the size of Statistics::drops), not a reason.
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
    /// derives at run time; the receiving resolver deciphers it. The key and
    /// the vector are fixed by the protocol: the cipher hides the password
    /// from a glance at a frame, not from anyone who captures the login.
    /// Protect the transport with TLS (KZConnection over a QSslSocket).
    ///@{

    /// Callback of setLanLoginCB(): called for a login request.
    using LanLoginCB = void (*)(void* ctx, const QString& account, const QString& password);
    /// Callback of setLanLoginResultCB(): called for a login reply.
    using LanLoginResultCB = void (*)(void* ctx, bool first, int code, bool codeBit0, bool second);
    /// Callback of setLanLogoutCB(): called for a logout.
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

    /// Callback of setLanAddUserCB(): called for a request to add a user.
    using LanAddUserCB = void (*)(void* ctx, const QString& name, const QString& text2,
                                  const QString& text3, const QString& lv1Group,
                                  const QString& lv2Group, bool flag);
    /// Callback of setLanAddUserResultCB(): called for an added user.
    using LanAddUserResultCB = void (*)(void* ctx, const user_info& user);
    /// Callback of setLanDeleteUserCB(): called for a request to delete users.
    using LanDeleteUserCB = void (*)(void* ctx, const QStringList& names);
    /// Callback of setLanDeleteUserResultCB(): called for a deletion reply.
    using LanDeleteUserResultCB = void (*)(void* ctx, bool ok, const QStringList& names);
    /// Callback of setLanUpdateClientCB(): called for a request to update a client account.
    using LanUpdateClientCB = void (*)(void* ctx, const QString& s1, const QString& s2,
                                       const QString& s3, const QString& s4, const QString& s5,
                                       const QString& s6, bool b1, bool b2);
    /// Callback of setLanUpdateClientResultCB(): called for a client update reply.
    using LanUpdateClientResultCB = void (*)(void* ctx, bool ok, const QString& s1,
                                             const QString& s2, const QString& s3,
                                             const QString& s4, const QString& s5,
                                             const QString& s6, bool b1, bool b2);
    /// Callback of setLanUpdateUserPermissionCB(): called for a request to set a user's permission
    /// value.
    using LanUpdateUserPermissionCB = void (*)(void* ctx, const QString& name, int permission);
    /// Callback of setLanUpdateUserPermissionResultCB(): called for a permission change reply.
    using LanUpdateUserPermissionResultCB = void (*)(void* ctx, bool ok, const QString& name,
                                                     int permission);
    /// Callback of setLanUpdateUserGroupPermissionCB(): called for a request to set a user's
    /// visible groups.
    using LanUpdateUserGroupPermissionCB = void (*)(void* ctx, const QString& name,
                                                    const QMap<QString, QStringList>& groups);
    /// Callback of setLanUpdateUserGroupPermissionResultCB(): called for a visible-groups reply.
    using LanUpdateUserGroupPermissionResultCB = void (*)(void* ctx, bool ok, const QString& name,
                                                          const QMap<QString, QStringList>& groups);
    /// Callback of setLanUserInfoCB(): called for a user list, flattened back in payload order.
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

    /// Callback of setLanAddGroupCB(): called for a request to create groups.
    using LanAddGroupCB = void (*)(void* ctx, const QStringList& lv1Names,
                                   const QMap<QString, QStringList>& lv2ByLv1);
    /// Callback of setLanAddGroupResultCB(): called for a group-creation acknowledgement.
    using LanAddGroupResultCB = void (*)(void* ctx);
    /// Callback of setLanRemoveLv1GroupResultCB(): called for a removed first-level group.
    using LanRemoveLv1GroupResultCB = void (*)(void* ctx, const QString& a);
    /// Callback of setLanRemoveLv2GroupResultCB(): called for a removed second-level group.
    using LanRemoveLv2GroupResultCB = void (*)(void* ctx, const QString& a, const QString& b);
    /// Callback of setLanUpdateLv1GroupResultCB(): called for a renamed first-level group.
    using LanUpdateLv1GroupResultCB = void (*)(void* ctx, const QString& a, const QString& b);
    /// Callback of setLanUpdateLv2GroupResultCB(): called for a renamed second-level group.
    using LanUpdateLv2GroupResultCB = void (*)(void* ctx, const QString& a, const QString& b,
                                               const QString& c);
    /// Callback of setLanSortGroupResultCB(): called for reordered groups.
    using LanSortGroupResultCB = void (*)(void* ctx, const QString& a, const QStringList& items);
    /// Callback of setLanSortItemCB(): called for a request to reorder items.
    using LanSortItemCB = void (*)(void* ctx, const QString& a, const QString& b,
                                   const QStringList& items);
    /// Callback of setLanSortItemResultCB(): called for a reordering reply.
    using LanSortItemResultCB = void (*)(void* ctx, bool ok, const QString& a, const QString& b,
                                         const QStringList& items);
    /// Callback of setLanMoveUserToGroupCB(): called for a request to move users.
    using LanMoveUserToGroupCB = void (*)(void* ctx, const QStringList& names, const QString& lv1,
                                          const QString& lv2);
    /// Callback of setLanMoveUserToGroupResultCB(): called for a user move reply.
    using LanMoveUserToGroupResultCB = void (*)(void* ctx, bool ok, const QStringList& names,
                                                const QString& lv1, const QString& lv2);
    /// Callback of setLanMoveMacToGroupCB(): called for a request to move machines.
    using LanMoveMacToGroupCB = LanMoveUserToGroupCB;
    /// Callback of setLanMoveMacToGroupResultCB(): called for a machine move reply.
    using LanMoveMacToGroupResultCB = LanMoveUserToGroupResultCB;
    /// Callback of setLanMoveOperatorToGroupCB(): called for a request to move operators.
    using LanMoveOperatorToGroupCB = LanMoveUserToGroupCB;
    /// Callback of setLanMoveOperatorToGroupResultCB(): called for an operator move reply.
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

    /// Callback of setLanAddOperatorUserCB(): called for a request to add an operator.
    using LanAddOperatorUserCB = void (*)(void* ctx, const QString& s1, const QString& s2,
                                          const QString& s3, const QString& s4, const QString& s5);
    /// Callback of setLanAddOperatorUserResultCB(): called for an added-operator reply.
    using LanAddOperatorUserResultCB = void (*)(void* ctx, bool ok, const QString& s1,
                                                const QString& s2, const QString& s3,
                                                const QString& s4, const QString& s5, bool b1,
                                                bool b2);
    /// Callback of setLanAddOperatorUsersCB(): called for a bulk addition.
    using LanAddOperatorUsersCB = void (*)(void* ctx, const QList<QVariant>& rows);
    /// Callback of setLanAddOperatorUsersResultCB(): called for a bulk addition reply (rows as for
    /// the request).
    using LanAddOperatorUsersResultCB = void (*)(void* ctx, bool ok, const QList<QVariant>& rows);
    /// Callback of setLanUpdateOperatorCB(): called for a request to update an operator.
    using LanUpdateOperatorCB = void (*)(void* ctx, const QString& s1, const QString& s2,
                                         const QString& s3, const QString& s4, const QString& s5,
                                         bool b1, bool b2);
    /// Callback of setLanUpdateOperatorResultCB(): called for an operator update reply.
    using LanUpdateOperatorResultCB = void (*)(void* ctx, bool ok, const QString& s1,
                                               const QString& s2, const QString& s3,
                                               const QString& s4, const QString& s5, bool b1,
                                               bool b2);
    /// Callback of setLanUpdateOperatorUserLoginResultCB(): called for an operator's login state.
    using LanUpdateOperatorUserLoginResultCB = void (*)(void* ctx, const QString& name, bool state);
    /// Callback of setLanDeleteOperatorUserCB(): called for a request to delete operators.
    using LanDeleteOperatorUserCB = void (*)(void* ctx, const QStringList& names);
    /// Callback of setLanDeleteOperatorUserResultCB(): called for an operator deletion reply.
    using LanDeleteOperatorUserResultCB = void (*)(void* ctx, bool ok, const QStringList& names);
    /// Callback of setLanOperatorUserInfoCB(): called for an operator table.
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

    /// Callback of setLanQueryPermissionCB(): called for a permission query.
    using LanQueryPermissionCB = void (*)(void* ctx, const QStringList& keys);
    /// Callback of setLanQueryPermissionResultCB(): called for a permission query reply.
    using LanQueryPermissionResultCB = void (*)(void* ctx, const QList<mac_user_power>& entries);
    /// Callback of setLanAddPermissionCB(): called for a request to add a permission.
    using LanAddPermissionCB = void (*)(void* ctx, const QStringList& keys, const QString& target,
                                        unsigned int power);
    /// Callback of setLanEditPermissionCB(): called for a request to edit a permission.
    using LanEditPermissionCB = void (*)(void* ctx, const QMap<QString, QStringList>& scope,
                                         const QString& target, unsigned int power);
    /// Callback of setLanDelPermissionCB(): called for a request to delete permissions.
    using LanDelPermissionCB = void (*)(void* ctx, const QMap<QString, QStringList>& scope);
    /// Callback of setLanSetPermissionResultCB(): called for the outcome of setting permissions,
    /// whichever flag the peer sent it with.
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

    /// Callback of setLanMacInfoCB(): called for a machine list, in payload order, repeated macs of
    /// a group pair skipped.
    using LanMacInfoCB = void (*)(void* ctx, const QList<mac_info>& macs);
    /// Callback of setLanMacInfoResultCB(): called for a machine-list acknowledgement.
    using LanMacInfoResultCB = void (*)(void* ctx);
    /// Callback of setLanAddNewMacResultCB(): called for a new machine.
    using LanAddNewMacResultCB = void (*)(void* ctx, const mac_info& mac);
    /// Callback of setLanEditMacCB(): called for a machine edit.
    using LanEditMacCB = void (*)(void* ctx, const QString& a, const QString& b);
    /// Callback of setLanDeleteMacCB(): called for a deletion request.
    using LanDeleteMacCB = void (*)(void* ctx, const QStringList& macs);
    /// Callback of setLanDeleteMacResultCB(): called for a deletion reply.
    using LanDeleteMacResultCB = void (*)(void* ctx, bool ok, const QStringList& macs);
    /// Callback of setLanMacLoginResultCB(): called for a machine-login acknowledgement.
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

    /// Callback of setLanMacStateResultCB(): called for a state report.
    using LanMacStateResultCB = void (*)(void* ctx, const QString& a, const QString& b,
                                         unsigned char state, const QString& c);
    /// Callback of setLanMacWorkLogCB(): called for a work log.
    using LanMacWorkLogCB = void (*)(void* ctx, const QString& a, const QString& b,
                                     const QString& c, const QList<work_log>& logs,
                                     const QMap<QString, int>& counts,
                                     const QMap<QString, oee_process_data>& processes);
    /// Callback of setLanMacWorkLogResultCB(): called for a work-log acknowledgement.
    using LanMacWorkLogResultCB = void (*)(void* ctx);
    /// Callback of setLanMacAbnormalResultCB(): called for abnormal-event counts.
    using LanMacAbnormalResultCB = void (*)(void* ctx, const QString& a, const QString& b,
                                            const QMap<int, int>& counts, const QString& c, int n);
    /// Callback of setLanMacAlarmLogResultCB(): called for alarm counts.
    using LanMacAlarmLogResultCB = void (*)(void* ctx, const QString& a, const QString& b,
                                            const QMap<QString, int>& counts);
    /// Callback of setLanMacDateTotalCB(): called for daily totals.
    using LanMacDateTotalCB = void (*)(void* ctx, const QMap<QString, int>& totals);
    /// Callback of setLanMacRunTimeResultCB(): called for run times.
    using LanMacRunTimeResultCB = void (*)(void* ctx, const QString& a, const QString& b,
                                           const QMap<QString, int>& times);
    /// Callback of setLanMacUpdateAxisSpeedResultCB(): called for an axis-speed report.
    using LanMacUpdateAxisSpeedResultCB = void (*)(void* ctx, const QString& mac, int speed);
    /// Callback of setLanMacUpdateBobbinThreadResultCB(): called for a bobbin-thread report.
    using LanMacUpdateBobbinThreadResultCB = void (*)(void* ctx, const QString& mac, int x, int y);
    /// Callback of setLanUpdateMacPlanResultCB(): called for a plan-change report.
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

    /// Callback of setLanRemoteSetModeCB(): called for a mode switch.
    using LanRemoteSetModeCB = void (*)(void* ctx, const QString& mac, int mode);
    /// Callback of setLanRemoteSetModeResultCB(): called for a mode-switch reply.
    using LanRemoteSetModeResultCB = void (*)(void* ctx, bool ok, const QString& mac, int valueA,
                                              int valueB, int valueC);
    /// Callback of setLanRemoteScreenTouchCB(): called for a screen touch.
    using LanRemoteScreenTouchCB = void (*)(void* ctx, const QString& mac, unsigned char kind,
                                            unsigned short x, unsigned short y);
    /// Callback of setLanRemoteUpdatePageResultCB(): called for a page report.
    using LanRemoteUpdatePageResultCB = void (*)(void* ctx, const QString& mac, unsigned int page);
    /// Callback of setLanRemoteUpdateAttrResultCB(): called for attribute data.
    using LanRemoteUpdateAttrResultCB = void (*)(void* ctx, const QString& mac,
                                                 const QByteArray& data);
    /// Callback of setLanRemoteUpdateImageResultCB(): called for an image.
    using LanRemoteUpdateImageResultCB = void (*)(void* ctx, const QString& mac,
                                                  const QByteArray& data);
    /// Callback of setLanRemoteUpdateScreenResultCB(): called for screen contents.
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

    /// \name Production plans
    /// The plan set, adding, editing and deleting plans, and the plans of one
    /// date. A plan row is a QVariant holding a list: its first six values
    /// travel as text and arrive as six QStrings (values past the sixth are
    /// not sent; missing ones go out as empty text).
    ///@{

    /// Callback of setLanInitPlanCB(): called for a plan-set request.
    using LanInitPlanCB = void (*)(void* ctx);
    /// Callback of setLanInitPlanResultCB(): called for the plan set.
    using LanInitPlanResultCB = void (*)(void* ctx, const QStringList& names,
                                         const QList<QVariant>& plans);
    /// Callback of setLanAddPlanCB(): called for an added plan.
    using LanAddPlanCB = void (*)(void* ctx, const QString& a, const QString& b,
                                  const QMap<QString, int>& map, int n);
    /// Callback of setLanEditPlanCB(): called for an edited plan.
    using LanEditPlanCB = void (*)(void* ctx, const QString& a, const QString& b, const QString& c,
                                   int m, int n);
    /// Callback of setLanDelPlanCB(): called for a deleted plan.
    using LanDelPlanCB = void (*)(void* ctx, const QString& a, const QString& b, const QString& c);
    /// Callback of setLanGetDatePlanCB(): called for a request for the plans of a date.
    using LanGetDatePlanCB = void (*)(void* ctx, const QString& date);
    /// Callback of setLanGetDatePlanResultCB(): called for the plans of a date.
    using LanGetDatePlanResultCB = void (*)(void* ctx, const QString& date,
                                            const QList<QVariant>& plans);

    /// Asks for the plan set (empty payload).
    void lanInitPlan();
    /// Answers with the plan set: a list of names and the plan rows.
    void lanInitPlanResponse(const QStringList& names, const QList<QVariant>& plans);
    /// Adds a plan. Sends nothing at all when `map` is empty.
    void lanAddPlan(const QString& a, const QString& b, const QMap<QString, int>& map, int n);
    /// Edits a plan.
    void lanEditPlan(const QString& a, const QString& b, const QString& c, int m, int n);
    /// Deletes a plan.
    void lanDelPlan(const QString& a, const QString& b, const QString& c);
    /// Asks for the plans of a date (free text).
    void lanGetDatePlan(const QString& date);
    /// Answers with the plan rows of a date.
    void lanGetDatePlanResponse(const QString& date, const QList<QVariant>& plans);
    /// Called for a plan-set request.
    void setLanInitPlanCB(LanInitPlanCB fn);
    /// Called for the plan set; each row is a QVariantList of six QStrings.
    void setLanInitPlanResultCB(LanInitPlanResultCB fn);
    /// Called for an added plan.
    void setLanAddPlanCB(LanAddPlanCB fn);
    /// Called for an edited plan.
    void setLanEditPlanCB(LanEditPlanCB fn);
    /// Called for a deleted plan.
    void setLanDelPlanCB(LanDelPlanCB fn);
    /// Called for a request for the plans of a date.
    void setLanGetDatePlanCB(LanGetDatePlanCB fn);
    /// Called for the plans of a date; a reply whose count has no rows
    /// behind it arrives with an empty list.
    void setLanGetDatePlanResultCB(LanGetDatePlanResultCB fn);
    ///@}

    /// \name Workshop plans
    /// The workshop data set, the plans of one key, and adding, editing and
    /// deleting workshop plans. Rows are QVariants holding lists:
    /// - query-plan row: three texts, two ints;
    /// - workshop-data row: four texts, three ints and a QMap<QString, int>
    ///   (given as that type or as a QVariantMap; it arrives as
    ///   QMap<QString, int>). A row whose map is empty goes out without the
    ///   map, count included: the receiver reads it right only in the last
    ///   row, so put rows with empty maps last.
    ///@{

    /// Callback of setLanInitWorkshopDataCB(): called for a workshop-data request.
    using LanInitWorkshopDataCB = void (*)(void* ctx);
    /// Callback of setLanInitWorkshopDataResultCB(): called for the workshop data set.
    using LanInitWorkshopDataResultCB = void (*)(void* ctx, const QList<QVariant>& rows);
    /// Callback of setLanWorkshopQueryPlanCB(): called for a query of the plans of a key.
    using LanWorkshopQueryPlanCB = void (*)(void* ctx, const QString& key);
    /// Callback of setLanWorkshopQueryPlanResultCB(): called for the plans of a key.
    using LanWorkshopQueryPlanResultCB = void (*)(void* ctx, const QString& key,
                                                  const QList<QVariant>& rows);
    /// Callback of setLanWorkshopAddPlanCB(): called for an added workshop plan.
    using LanWorkshopAddPlanCB = void (*)(void* ctx, const QString& a, const QString& b,
                                          const QString& c, const QMap<QString, int>& map, int n);
    /// Callback of setLanWorkshopEditPlanCB(): called for an edited workshop plan.
    using LanWorkshopEditPlanCB = void (*)(void* ctx, const QString& a, const QString& b,
                                           const QString& c, const QString& d, const QString& e,
                                           const QMap<QString, int>& map, int n);
    /// Callback of setLanWorkshopDelPlanCB(): called for a deleted workshop plan.
    using LanWorkshopDelPlanCB = void (*)(void* ctx, const QString& a, const QString& b);

    /// Asks for the workshop data set (empty payload).
    void lanInitWorkshopData();
    /// Answers with the workshop-data rows. Every row is sent, but the count
    /// travels cut to 16 bits.
    void lanInitWorkshopDataResponse(const QList<QVariant>& rows);
    /// Asks for the plans of a key.
    void lanWorkshopQueryPlan(const QString& key);
    /// Answers with the query-plan rows of a key. A list of 32768 rows or
    /// more is cut: only (size mod 65536) rows are sent, none when that is
    /// 32768 or more.
    void lanWorkshopQueryPlanResult(const QString& key, const QList<QVariant>& rows);
    /// Adds a workshop plan (an empty map is sent as such).
    void lanWorkshopAddPlan(const QString& a, const QString& b, const QString& c,
                            const QMap<QString, int>& map, int n);
    /// Edits a workshop plan.
    void lanWorkshopEditPlan(const QString& a, const QString& b, const QString& c, const QString& d,
                             const QString& e, const QMap<QString, int>& map, int n);
    /// Deletes a workshop plan.
    void lanWorkshopDelPlan(const QString& a, const QString& b);
    /// Called for a workshop-data request.
    void setLanInitWorkshopDataCB(LanInitWorkshopDataCB fn);
    /// Called for the workshop data set.
    void setLanInitWorkshopDataResultCB(LanInitWorkshopDataResultCB fn);
    /// Called for a query of the plans of a key.
    void setLanWorkshopQueryPlanCB(LanWorkshopQueryPlanCB fn);
    /// Called for the plans of a key.
    void setLanWorkshopQueryPlanResultCB(LanWorkshopQueryPlanResultCB fn);
    /// Called for an added workshop plan.
    void setLanWorkshopAddPlanCB(LanWorkshopAddPlanCB fn);
    /// Called for an edited workshop plan.
    void setLanWorkshopEditPlanCB(LanWorkshopEditPlanCB fn);
    /// Called for a deleted workshop plan.
    void setLanWorkshopDelPlanCB(LanWorkshopDelPlanCB fn);
    ///@}

    /// \name Planned stops and work time
    /// The pushed stop list, stop sets added and edited, deleted by
    /// identifier or date, the stops outside the plan, and the work time of
    /// a date. Each reply echoes its request behind two status flags (ok1,
    /// ok2), whose meaning is the answering side's. A stop map holds per
    /// number a list of two texts and a number (QString, QString, double);
    /// numbers travel with six significant digits.
    ///@{

    /// Stops by number, each a list of two texts and a number (QString, QString, double).
    using StopMap = QMap<int, QList<QVariant>>;
    /// Callback of setLanOeeShutItemCB(): called for the pushed stop sets.
    using LanOeeShutItemCB = void (*)(void* ctx, const QList<oee_shut_item>& items);
    /// Callback of setLanAddPlanShutItemCB(): called for an added stop set.
    using LanAddPlanShutItemCB = void (*)(void* ctx, const QString& a, const QString& b,
                                          const StopMap& stops, const QStringList& names);
    /// Callback of setLanAddPlanShutItemResultCB(): called for the answer to an add.
    using LanAddPlanShutItemResultCB = void (*)(void* ctx, bool ok1, bool ok2, int n,
                                                const QString& a, const QString& b,
                                                const StopMap& stops, const QStringList& names);
    /// Callback of setLanEditPlanShutItemCB(): called for an edited stop set.
    using LanEditPlanShutItemCB = void (*)(void* ctx, const QString& a, const QString& b,
                                           const QString& c, const StopMap& stops,
                                           const QStringList& names);
    /// Callback of setLanEditPlanShutItemResultCB(): called for the answer to an edit.
    using LanEditPlanShutItemResultCB = void (*)(void* ctx, bool ok1, bool ok2, int n,
                                                 const QString& a, const QString& b,
                                                 const QString& c, const StopMap& stops,
                                                 const QStringList& names);
    /// Callback of setLanDelPlanShutItemCB(): called for a delete by identifier.
    using LanDelPlanShutItemCB = void (*)(void* ctx, const QString& id);
    /// Callback of setLanDelPlanShutItemResultCB(): called for the answer to a delete by
    /// identifier.
    using LanDelPlanShutItemResultCB = void (*)(void* ctx, bool ok1, bool ok2, int n);
    /// Callback of setLanDelPlanShutByDateCB(): called for a delete by date.
    using LanDelPlanShutByDateCB = void (*)(void* ctx, const QString& date);
    /// Callback of setLanDelPlanShutByDateResultCB(): called for the answer to a delete by date.
    using LanDelPlanShutByDateResultCB = void (*)(void* ctx, bool ok1, bool ok2,
                                                  const QString& date);
    /// Callback of setLanEditPlanWorkTimeCB(): called for a work-time edit.
    using LanEditPlanWorkTimeCB = void (*)(void* ctx, const QString& date,
                                           const QMap<int, oee_worktime_item>& times);
    /// Callback of setLanEditPlanWorkTimeResultCB(): called for the answer to a work-time edit.
    using LanEditPlanWorkTimeResultCB = void (*)(void* ctx, bool ok1, bool ok2, const QString& date,
                                                 const QMap<int, oee_worktime_item>& times);
    /// Callback of setLanDelPlanWorkTimeCB(): called for a work-time delete.
    using LanDelPlanWorkTimeCB = void (*)(void* ctx, const QString& date);
    /// Callback of setLanDelPlanWorkTimeResultCB(): called for the answer to a work-time delete.
    using LanDelPlanWorkTimeResultCB = void (*)(void* ctx, bool ok1, bool ok2, const QString& date);
    /// Callback of setLanEditPlanOutShutItemCB(): called for an out-of-plan stop edit.
    using LanEditPlanOutShutItemCB = void (*)(void* ctx, int n, const QMap<int, QString>& stops);
    /// Callback of setLanEditPlanOutShutItemResultCB(): called for the answer to an out-of-plan
    /// stop edit.
    using LanEditPlanOutShutItemResultCB = void (*)(void* ctx, bool ok1, bool ok2,
                                                    const QMap<int, QString>& stops);

    /// Pushes the planned-stop sets (no reply).
    void lanOeeShutItemList(const QList<oee_shut_item>& items);
    /// Adds a set of planned stops with its names.
    void lanAddPlanShutItem(const QString& a, const QString& b, const StopMap& stops,
                            const QStringList& names);
    /// Answers an add with the two status flags and a result number, echoing the request.
    void lanAddPlanShutItemResponse(bool ok1, bool ok2, int n, const QString& a, const QString& b,
                                    const StopMap& stops, const QStringList& names);
    /// Edits a set of planned stops.
    void lanEditPlanShutItem(const QString& a, const QString& b, const QString& c,
                             const StopMap& stops, const QStringList& names);
    /// Answers an edit with the two status flags and a result number, echoing the request.
    void lanEditPlanShutItemResponse(bool ok1, bool ok2, int n, const QString& a, const QString& b,
                                     const QString& c, const StopMap& stops,
                                     const QStringList& names);
    /// Deletes a set of planned stops by its identifier.
    void lanDelPlanShutItem(const QString& id);
    /// Answers a delete by identifier: the status flags and a result number.
    void lanDelPlanShutItemResponse(bool ok1, bool ok2, int n);
    /// Deletes the planned stops of a date.
    void lanDelPlanShutByDate(const QString& date);
    /// Answers a delete by date.
    void lanDelPlanShutByDateResponse(bool ok1, bool ok2, const QString& date);
    /// Sets the work-time spans of a date, by number.
    void lanEditPlanWorkTime(const QString& date, const QMap<int, oee_worktime_item>& times);
    /// Answers a work-time edit.
    void lanEditPlanWorkTimeResponse(bool ok1, bool ok2, const QString& date,
                                     const QMap<int, oee_worktime_item>& times);
    /// Deletes the work time of a date.
    void lanDelPlanWorkTime(const QString& date);
    /// Answers a work-time delete.
    void lanDelPlanWorkTimeResponse(bool ok1, bool ok2, const QString& date);
    /// Sets the stops outside the plan (text by number); `n` travels after the map.
    void lanEditPlanOutShutItem(int n, const QMap<int, QString>& stops);
    /// Answers an out-of-plan stop edit (the map is echoed, `n` is not).
    void lanEditPlanOutShutItemResponse(bool ok1, bool ok2, const QMap<int, QString>& stops);
    /// Called for the pushed stop sets.
    void setLanOeeShutItemCB(LanOeeShutItemCB fn);
    /// Called for an added stop set.
    void setLanAddPlanShutItemCB(LanAddPlanShutItemCB fn);
    /// Called for the answer to an add.
    void setLanAddPlanShutItemResultCB(LanAddPlanShutItemResultCB fn);
    /// Called for an edited stop set.
    void setLanEditPlanShutItemCB(LanEditPlanShutItemCB fn);
    /// Called for the answer to an edit.
    void setLanEditPlanShutItemResultCB(LanEditPlanShutItemResultCB fn);
    /// Called for a delete by identifier.
    void setLanDelPlanShutItemCB(LanDelPlanShutItemCB fn);
    /// Called for the answer to a delete by identifier.
    void setLanDelPlanShutItemResultCB(LanDelPlanShutItemResultCB fn);
    /// Called for a delete by date.
    void setLanDelPlanShutByDateCB(LanDelPlanShutByDateCB fn);
    /// Called for the answer to a delete by date.
    void setLanDelPlanShutByDateResultCB(LanDelPlanShutByDateResultCB fn);
    /// Called for a work-time edit.
    void setLanEditPlanWorkTimeCB(LanEditPlanWorkTimeCB fn);
    /// Called for the answer to a work-time edit.
    void setLanEditPlanWorkTimeResultCB(LanEditPlanWorkTimeResultCB fn);
    /// Called for a work-time delete.
    void setLanDelPlanWorkTimeCB(LanDelPlanWorkTimeCB fn);
    /// Called for the answer to a work-time delete.
    void setLanDelPlanWorkTimeResultCB(LanDelPlanWorkTimeResultCB fn);
    /// Called for an out-of-plan stop edit.
    void setLanEditPlanOutShutItemCB(LanEditPlanOutShutItemCB fn);
    /// Called for the answer to an out-of-plan stop edit.
    void setLanEditPlanOutShutItemResultCB(LanEditPlanOutShutItemResultCB fn);
    ///@}

    /// \name OEE data
    /// OEE data of a set of keys over a span, OEE figures of a date range,
    /// and pushed machine run times. Rows are QVariants holding lists:
    /// - figure row: four texts, an int and five doubles;
    /// - breakdown row: a text and a map of numbers (a QVariantMap, or a
    ///   QMap<QString, double>; it arrives as a QVariantMap of doubles);
    /// - run-time row: two texts and an int.
    /// Doubles travel with six significant digits. A figure or breakdown
    /// list, or a run-time list, of 32768 rows or more is cut as
    /// lanWorkshopQueryPlanResult cuts it.
    ///@{

    /// Callback of setLanLoadOEEDataCB(): called for an OEE data request.
    using LanLoadOEEDataCB = void (*)(void* ctx, const QStringList& keys, const QString& a,
                                      const QString& b, int n);
    /// Callback of setLanLoadOEEDataResultCB(): called for OEE data.
    using LanLoadOEEDataResultCB = void (*)(void* ctx, const QStringList& keys, const QString& a,
                                            const QString& b, int n,
                                            const QMap<QString, oee_date_data>& data);
    /// Callback of setLanUpdateOEEMacRunTimeResultCB(): called for pushed run times.
    using LanUpdateOEEMacRunTimeResultCB = void (*)(void* ctx, const QList<QVariant>& rows);
    /// Callback of setLanQueryDateOEEDataCB(): called for a date-range query.
    using LanQueryDateOEEDataCB = void (*)(void* ctx, const QDate& from, const QDate& to, int n);
    /// Callback of setLanQueryDateOEEDataResultCB(): called for the OEE figures of a date range.
    using LanQueryDateOEEDataResultCB = void (*)(void* ctx, int n, const QList<QVariant>& figures,
                                                 const QList<QVariant>& breakdownA,
                                                 const QList<QVariant>& breakdownB);

    /// Asks for the OEE data of `keys` (machines or dates) over a span.
    /// Only the low 16 bits of `n` travel.
    void lanLoadOEEData(const QStringList& keys, const QString& a, const QString& b, int n);
    /// Answers with the request's fields and the OEE data by key.
    void lanLoadOEEDataResult(const QStringList& keys, const QString& a, const QString& b, int n,
                              const QMap<QString, oee_date_data>& data);
    /// Pushes machine run times: rows of exactly three values. The count
    /// announces every row, but rows of another length are not written, so
    /// the receiver misreads what follows: pass three-value rows only.
    void lanUpdateOEEMacRunTimeResult(const QList<QVariant>& rows);
    /// Asks for the OEE figures from `from` to `to` (sent as "yyyy-MM-dd";
    /// an invalid date as empty text).
    void lanQueryDateOEEData(const QDate& from, const QDate& to, int n);
    /// Answers with figure rows and two breakdown lists.
    void lanQueryDateOEEDataResult(int n, const QList<QVariant>& figures,
                                   const QList<QVariant>& breakdownA,
                                   const QList<QVariant>& breakdownB);
    /// Called for an OEE data request; `n` is 0..65535.
    void setLanLoadOEEDataCB(LanLoadOEEDataCB fn);
    /// Called for OEE data; the process figures arrive as whole numbers.
    void setLanLoadOEEDataResultCB(LanLoadOEEDataResultCB fn);
    /// Called for pushed run times; each row a QVariantList (QString, QString, int).
    void setLanUpdateOEEMacRunTimeResultCB(LanUpdateOEEMacRunTimeResultCB fn);
    /// Called for a date-range query; a text that is no date arrives as an invalid QDate.
    void setLanQueryDateOEEDataCB(LanQueryDateOEEDataCB fn);
    /// Called for the OEE figures of a date range.
    void setLanQueryDateOEEDataResultCB(LanQueryDateOEEDataResultCB fn);
    ///@}

    /// \name Machine file operations
    /// Listing the files of a machine and renaming, executing and deleting
    /// them. What the texts and the mode select is the host's business; the
    /// library keeps no state and leaves matching replies to requests to the
    /// host. Status bytes arrive as true unless the byte is 1.
    ///@{

    /// Callback of setLanMacFilesCB(): called for a listing request.
    using LanMacFilesCB = void (*)(void* ctx, const QString& mac, const QString& path, int mode);
    /// Callback of setLanMacFilesResultCB(): called for a listing.
    using LanMacFilesResultCB = void (*)(void* ctx, const QString& path, int value,
                                         const QStringList& files);
    /// Callback of setLanMacRenameFileCB(): called for a rename request.
    using LanMacRenameFileCB = void (*)(void* ctx, const QString& mac, const QString& from,
                                        const QString& to);
    /// Callback of setLanMacRenameFileResultCB(): called for a rename reply.
    using LanMacRenameFileResultCB = void (*)(void* ctx, bool ok);
    /// Callback of setLanMacExecuteFileCB(): called for an execute request.
    using LanMacExecuteFileCB = void (*)(void* ctx, const QString& mac, const QString& file);
    /// Callback of setLanMacExecuteFileResultCB(): called for an execute reply.
    using LanMacExecuteFileResultCB = void (*)(void* ctx, bool ok);
    /// Callback of setLanMacDeleteFileCB(): called for a deletion request.
    using LanMacDeleteFileCB = void (*)(void* ctx, const QString& mac, const QStringList& files);
    /// Callback of setLanMacDeleteFileResultCB(): called for a deletion reply.
    using LanMacDeleteFileResultCB = void (*)(void* ctx, bool ok);

    /// Asks for the files of a machine (most likely: a machine, a directory
    /// and what to list). Only the low byte of `mode` is sent.
    void lanMacFiles(const QString& mac, const QString& path, int mode);
    /// Answers a file listing. Only the low 16 bits of `value` are sent.
    void lanMacFilesResponse(const QString& path, int value, const QStringList& files);
    /// Asks to rename a file of a machine.
    void lanMacRenameFile(const QString& mac, const QString& from, const QString& to);
    /// Answers a rename.
    void lanMacRenameFileResponse(bool ok);
    /// Asks a machine to execute (start working) a file.
    void lanMacExecuteFile(const QString& mac, const QString& file);
    /// Answers an execute request.
    void lanMacExecuteFileResponse(bool ok);
    /// Asks to delete files of a machine.
    void lanMacDeleteFile(const QString& mac, const QStringList& files);
    /// Answers a deletion.
    void lanMacDeleteFileResponse(bool ok);
    /// Called for a listing request; `mode` arrives as a signed byte (200
    /// arrives as -56).
    void setLanMacFilesCB(LanMacFilesCB fn);
    /// Called for a listing; `value` arrives as a signed 16-bit number.
    void setLanMacFilesResultCB(LanMacFilesResultCB fn);
    /// Called for a rename request.
    void setLanMacRenameFileCB(LanMacRenameFileCB fn);
    /// Called for a rename reply.
    void setLanMacRenameFileResultCB(LanMacRenameFileResultCB fn);
    /// Called for an execute request.
    void setLanMacExecuteFileCB(LanMacExecuteFileCB fn);
    /// Called for an execute reply.
    void setLanMacExecuteFileResultCB(LanMacExecuteFileResultCB fn);
    /// Called for a deletion request.
    void setLanMacDeleteFileCB(LanMacDeleteFileCB fn);
    /// Called for a deletion reply.
    void setLanMacDeleteFileResultCB(LanMacDeleteFileResultCB fn);
    ///@}

    /// \name File transfer tasks
    /// Moving files in tasks: a task is announced (AddTask, answered by
    /// AddTaskUi), started (TaskStart), opened (TaskBegin, answered by
    /// BeginResponse), carried in content chunks each answered by a content
    /// reply, closed (Close) and ended (End); Speed and Percent report
    /// progress, Pause, Resume and Cancel act on a running task. The
    /// library keeps no task state: the integers (task, file and chunk
    /// numbers, sizes, rates) and the 16-byte blocks (digests, say) are the
    /// host's. Each message goes under one fixed flag and is ignored under
    /// the other; Percent goes under the reply flag, Speed under the
    /// request flag, and the begin answer has a code of its own.
    ///
    /// A 16-byte block is sent as the first 16 bytes of the array given,
    /// padded with zero bytes if shorter; it arrives as those 16 bytes (fewer
    /// only when the data ends inside it).
    ///@{

    /// Callback of setLanMacTsfExchangeFileCB(): called for a file table.
    using LanMacTsfExchangeFileCB = void (*)(void* ctx, const QMap<QString, QStringList>& files);
    /// Callback of setLanMacTsfFileAddTaskCB(): called for an announced task.
    using LanMacTsfFileAddTaskCB = void (*)(void* ctx, bool b1, const QString& a, const QString& b,
                                            const QString& c, bool b2, const QStringList& list);
    /// Callback of setLanMacTsfFileAddTaskUiCB(): called for the answer to an announced task.
    using LanMacTsfFileAddTaskUiCB = void (*)(void* ctx, bool ok, const QString& a,
                                              const QString& b, int n, const QString& c,
                                              const QString& d, const QString& e);
    /// Callback of setLanMacTsfFileTaskStartCB(): called when tasks start.
    using LanMacTsfFileTaskStartCB = void (*)(void* ctx);
    /// Callback of setLanMacTsfFileTaskBeginCB(): called when a transfer opens.
    using LanMacTsfFileTaskBeginCB = void (*)(void* ctx, int n, const QByteArray& block);
    /// Callback of setLanMacTsfFileBeginResultCB(): called for the answer to TaskBegin.
    using LanMacTsfFileBeginResultCB = void (*)(void* ctx, int n1, int n2, int n3);
    /// Callback of setLanMacTsfFileContentCB(): called for a chunk.
    using LanMacTsfFileContentCB = void (*)(void* ctx, int p, int q, int r, int len,
                                            const QByteArray& block, const QByteArray& data);
    /// Callback of setLanMacTsfFileContentResultCB(): called for a chunk acknowledgement.
    using LanMacTsfFileContentResultCB = void (*)(void* ctx, int n1, int n2);
    /// Callback of setLanMacTsfFileCloseCB(): called when a transfer closes.
    using LanMacTsfFileCloseCB = void (*)(void* ctx, int n1, int n2, const QByteArray& block);
    /// Callback of setLanMacTsfFileEndCB(): called for the end of a transfer.
    using LanMacTsfFileEndCB = void (*)(void* ctx, int n, const QString& text, bool ok);
    /// Callback of setLanMacTsfFilePercentCB(): called for a progress report (reply flag only).
    using LanMacTsfFilePercentCB = void (*)(void* ctx, int n1, int n2, int n3);
    /// Callback of setLanMacTsfFileSpeedCB(): called for a speed report (request flag only).
    using LanMacTsfFileSpeedCB = void (*)(void* ctx, int n1, int n2, int n3);
    /// Callback of setLanMacTsfFilePauseCB(): called for a pause request.
    using LanMacTsfFilePauseCB = void (*)(void* ctx, const QString& task, int n);
    /// Callback of setLanMacTsfFileResumeCB(): called for a resume request.
    using LanMacTsfFileResumeCB = void (*)(void* ctx, const QString& task, int n);
    /// Callback of setLanMacTsfFileCancelCB(): called for a cancel request.
    using LanMacTsfFileCancelCB = void (*)(void* ctx, const QString& task, int n);

    /// Sends a table of file entries, four texts per key. An entry whose
    /// list does not hold exactly four texts is sent as its key alone, which
    /// puts the rest of the table out of step for the receiver: pass
    /// four-text lists only.
    void lanMacTsfExchangeFile(const QMap<QString, QStringList>& files);
    /// Announces a transfer task (texts and list most likely name the
    /// machine, the task and its files).
    void lanMacTsfFileAddTask(bool b1, const QString& a, const QString& b, const QString& c,
                              bool b2, const QStringList& list);
    /// Answers an announced task with its description (the reply-flag form
    /// of AddTask, with other fields).
    void lanMacTsfFileAddTaskUi(bool ok, const QString& a, const QString& b, int n,
                                const QString& c, const QString& d, const QString& e);
    /// Starts the announced tasks (empty payload).
    void lanMacTsfFileTaskStart();
    /// Opens one transfer: an integer and a 16-byte block.
    void lanMacTsfFileTaskBegin(int n, const QByteArray& block);
    /// Answers TaskBegin (under a code of its own).
    void lanMacTsfFileBeginResponse(int n1, int n2, int n3);
    /// Sends one chunk: three integers, the chunk's length `len`, a 16-byte
    /// block and the data. The whole of `data` is sent and the receiver takes
    /// `len` bytes, so `len` must be `data.size()`.
    void lanMacTsfFileContent(int p, int q, int r, int len, const QByteArray& block,
                              const QByteArray& data);
    /// Acknowledges one chunk.
    void lanMacTsfFileContentResponse(int n1, int n2);
    /// Closes a transfer: two integers and a 16-byte block.
    void lanMacTsfFileClose(int n1, int n2, const QByteArray& block);
    /// Reports the end of a transfer and whether it succeeded.
    void lanMacTsfFileEnd(int n, const QString& text, bool ok);
    /// Reports progress as three integers (sent under the reply flag).
    void lanMacTsfFilePercent(int n1, int n2, int n3);
    /// Reports speed as three integers (sent under the request flag).
    void lanMacTsfFileSpeed(int n1, int n2, int n3);
    /// Pauses the task named by `task` and `n`.
    void lanMacTsfFilePause(const QString& task, int n);
    /// Resumes the task named by `task` and `n`.
    void lanMacTsfFileResume(const QString& task, int n);
    /// Cancels the task named by `task` and `n`.
    void lanMacTsfFileCancel(const QString& task, int n);
    /// Called for a file table: per key the last three of the four texts
    /// sent (a repeated key keeps its last entry).
    void setLanMacTsfExchangeFileCB(LanMacTsfExchangeFileCB fn);
    /// Called for an announced task.
    void setLanMacTsfFileAddTaskCB(LanMacTsfFileAddTaskCB fn);
    /// Called for the answer to an announced task.
    void setLanMacTsfFileAddTaskUiCB(LanMacTsfFileAddTaskUiCB fn);
    /// Called when tasks start.
    void setLanMacTsfFileTaskStartCB(LanMacTsfFileTaskStartCB fn);
    /// Called when a transfer opens.
    void setLanMacTsfFileTaskBeginCB(LanMacTsfFileTaskBeginCB fn);
    /// Called for the answer to TaskBegin.
    void setLanMacTsfFileBeginResultCB(LanMacTsfFileBeginResultCB fn);
    /// Called for a chunk; `data` holds `len` bytes (fewer when the data
    /// ends first, none for `len` <= 0).
    void setLanMacTsfFileContentCB(LanMacTsfFileContentCB fn);
    /// Called for a chunk acknowledgement.
    void setLanMacTsfFileContentResultCB(LanMacTsfFileContentResultCB fn);
    /// Called when a transfer closes.
    void setLanMacTsfFileCloseCB(LanMacTsfFileCloseCB fn);
    /// Called for the end of a transfer; `ok` is true only for a 0 byte.
    void setLanMacTsfFileEndCB(LanMacTsfFileEndCB fn);
    /// Called for a progress report (reply flag only).
    void setLanMacTsfFilePercentCB(LanMacTsfFilePercentCB fn);
    /// Called for a speed report (request flag only).
    void setLanMacTsfFileSpeedCB(LanMacTsfFileSpeedCB fn);
    /// Called for a pause request.
    void setLanMacTsfFilePauseCB(LanMacTsfFilePauseCB fn);
    /// Called for a resume request.
    void setLanMacTsfFileResumeCB(LanMacTsfFileResumeCB fn);
    /// Called for a cancel request.
    void setLanMacTsfFileCancelCB(LanMacTsfFileCancelCB fn);
    ///@}

    /// \name Shared files
    /// The shared files as two lists under a text (most likely a directory),
    /// for management clients and app clients, and a request to download
    /// some of them. The two lists of a reply share one byte budget: a list
    /// cut short by it, or by the end of the data, ends early without error.
    ///@{

    /// Callback of setLanLoadSharedFilesCB(): called for a shared-file request.
    using LanLoadSharedFilesCB = void (*)(void* ctx, int kind, const QString& path);
    /// Callback of setLanLoadSharedFilesResultCB(): called for the shared-file lists.
    using LanLoadSharedFilesResultCB = void (*)(void* ctx, const QString& path,
                                                const QStringList& first,
                                                const QStringList& second);
    /// Callback of setLanDownloadSharedFilesCB(): called for a download request.
    using LanDownloadSharedFilesCB = void (*)(void* ctx, int kind, const QString& path,
                                              const QStringList& first, const QStringList& second);
    /// Callback of setLanAppLoadSharedFilesCB(): called for an app client's shared-file request.
    using LanAppLoadSharedFilesCB = void (*)(void* ctx, const QString& path);
    /// Callback of setLanAppLoadSharedFilesResultCB(): called for the shared-file lists sent to an
    /// app client.
    using LanAppLoadSharedFilesResultCB = void (*)(void* ctx, const QStringList& first,
                                                   const QStringList& second, const QString& path);

    /// Asks for the shared files. Only the low byte of `kind` is sent, after
    /// the text.
    void lanLoadSharedFiles(int kind, const QString& path);
    /// Answers with the two lists of shared files.
    void lanLoadSharedFilesResponse(const QString& path, const QStringList& first,
                                    const QStringList& second);
    /// Asks to download shared files (no reply message). Only the low byte
    /// of `kind` is sent.
    void lanDownloadSharedFiles(int kind, const QString& path, const QStringList& first,
                                const QStringList& second);
    /// Asks for the shared files, for an app client.
    void lanAppLoadSharedFiles(const QString& path);
    /// Answers an app client; the text travels ahead of the lists.
    void lanAppLoadSharedFilesResult(const QStringList& first, const QStringList& second,
                                     const QString& path);
    /// Called for a shared-file request; `kind` arrives as a signed byte.
    void setLanLoadSharedFilesCB(LanLoadSharedFilesCB fn);
    /// Called for the shared-file lists.
    void setLanLoadSharedFilesResultCB(LanLoadSharedFilesResultCB fn);
    /// Called for a download request; `kind` arrives as a signed byte.
    void setLanDownloadSharedFilesCB(LanDownloadSharedFilesCB fn);
    /// Called for an app client's shared-file request.
    void setLanAppLoadSharedFilesCB(LanAppLoadSharedFilesCB fn);
    /// Called for the shared-file lists sent to an app client.
    void setLanAppLoadSharedFilesResultCB(LanAppLoadSharedFilesResultCB fn);
    ///@}

    /// \name Log queries
    /// A query for a machine's logs, and the data messages that answer it:
    /// one message per kind of log, each a text and a list of records. The
    /// data messages go out with the request flag although the answering
    /// side sends them; only QueryLog has a reply of its own. Figures sent
    /// as text keep six significant digits; figures sent as whole numbers
    /// are rounded half to even (and held to the 32-bit range).
    ///@{

    /// Callback of setLanQueryLogCB(): called for a log query.
    using LanQueryLogCB = void (*)(void* ctx, const QString& a, int k, const QString& b,
                                   const QString& c, bool f1, bool f2, bool f3, bool f4,
                                   const QStringList& list);
    /// Callback of setLanQueryLogResultCB(): called for a log query's answer.
    using LanQueryLogResultCB = void (*)(void* ctx, const QString& text);
    /// Callback of setLanQueryLogsByFilterCB(): called for a log query by filter.
    using LanQueryLogsByFilterCB = void (*)(void* ctx, bool f, const QString& a, const QString& b,
                                            const QString& c, const QStringList& list1,
                                            const QStringList& list2);
    /// Callback of setLanQueryLog2CB(): called for a log query of the second generation.
    using LanQueryLog2CB = void (*)(void* ctx, const QString& a, const QString& b, const QString& c,
                                    const QStringList& list);
    /// Callback of setLanQueryProcessResultCB(): called for processing logs.
    using LanQueryProcessResultCB = void (*)(void* ctx, const QString& text,
                                             const QList<kz_log_process>& logs);
    /// Callback of setLanQueryRuntimeResultCB(): called for run-time logs.
    using LanQueryRuntimeResultCB = void (*)(void* ctx, const QString& text,
                                             const QList<kz_log_runtime>& logs);
    /// Callback of setLanQueryAbnormalResultCB(): called for abnormal events.
    using LanQueryAbnormalResultCB = void (*)(void* ctx, const QString& text,
                                              const QList<kz_abnormal_info>& events);
    /// Callback of setLanQueryAlarmResultCB(): called for alarm logs.
    using LanQueryAlarmResultCB = void (*)(void* ctx, const QString& text,
                                           const QList<kz_log_alarm>& logs);
    /// Callback of setLanQueryProcessStopResultCB(): called for processing stops.
    using LanQueryProcessStopResultCB = void (*)(void* ctx, const QString& text,
                                                 const QList<kz_log_processstop>& stops);
    /// Callback of setLanQueryShutdownResultCB(): called for shutdowns.
    using LanQueryShutdownResultCB = void (*)(void* ctx, const QString& text,
                                              const QList<kz_log_shutdown>& shutdowns);
    /// Callback of setLanQueryProcess2ResultCB(): called for processing records of the second
    /// generation.
    using LanQueryProcess2ResultCB = void (*)(void* ctx, const QString& text,
                                              const QList<kz_log_process_detail>& records);
    /// Callback of setLanQueryRuntime2ResultCB(): called for run-time records of the second
    /// generation.
    using LanQueryRuntime2ResultCB = void (*)(void* ctx, const QString& text,
                                              const QList<kz_log_runtime_info>& records);
    /// Callback of setLanQueryAbnormal2ResultCB(): called for abnormal events of the second
    /// generation.
    using LanQueryAbnormal2ResultCB = void (*)(void* ctx, const QString& text,
                                               const QList<kz_abnormal_info>& events);
    /// Callback of setLanQueryAlarm2ResultCB(): called for alarm records of the second generation.
    using LanQueryAlarm2ResultCB = void (*)(void* ctx, const QString& text,
                                            const QList<kz_log_alarm_info>& records);

    /// Asks for logs: three texts, a number, four flags and a list.
    void lanQueryLog(const QString& a, int k, const QString& b, const QString& c, bool f1, bool f2,
                     bool f3, bool f4, const QStringList& list);
    /// Answers a log query with a text.
    void lanQueryLogResponse(const QString& text);
    /// Asks for logs by filter: a flag, three texts and two lists.
    void lanQueryLogsByFilter(bool f, const QString& a, const QString& b, const QString& c,
                              const QStringList& list1, const QStringList& list2);
    /// Asks for logs of the second generation: three texts and a list.
    void lanQueryLog2(const QString& a, const QString& b, const QString& c,
                      const QStringList& list);
    /// Sends processing logs.
    void lanQueryProcessResponse(const QString& text, const QList<kz_log_process>& logs);
    /// Sends run-time logs.
    void lanQueryRuntimeResponse(const QString& text, const QList<kz_log_runtime>& logs);
    /// Sends abnormal events (text1 of each is not carried).
    void lanQueryAbnormalResponse(const QString& text, const QList<kz_abnormal_info>& events);
    /// Sends alarm logs.
    void lanQueryAlarmResponse(const QString& text, const QList<kz_log_alarm>& logs);
    /// Sends processing stops (code3 travels as its low 8 bits).
    void lanQueryProcessStopResponse(const QString& text, const QList<kz_log_processstop>& stops);
    /// Sends shutdowns.
    void lanQueryShutdownResponse(const QString& text, const QList<kz_log_shutdown>& shutdowns);
    /// Sends processing records of the second generation.
    void lanQueryProcess2Result(const QString& text, const QList<kz_log_process_detail>& records);
    /// Sends run-time records of the second generation.
    void lanQueryRuntime2Result(const QString& text, const QList<kz_log_runtime_info>& records);
    /// Sends abnormal events of the second generation (text1 included).
    void lanQueryAbnormal2Result(const QString& text, const QList<kz_abnormal_info>& events);
    /// Sends alarm records of the second generation.
    void lanQueryAlarm2Result(const QString& text, const QList<kz_log_alarm_info>& records);
    /// Called for a log query.
    void setLanQueryLogCB(LanQueryLogCB fn);
    /// Called for a log query's answer.
    void setLanQueryLogResultCB(LanQueryLogResultCB fn);
    /// Called for a log query by filter.
    void setLanQueryLogsByFilterCB(LanQueryLogsByFilterCB fn);
    /// Called for a log query of the second generation.
    void setLanQueryLog2CB(LanQueryLog2CB fn);
    /// Called for processing logs.
    void setLanQueryProcessResultCB(LanQueryProcessResultCB fn);
    /// Called for run-time logs.
    void setLanQueryRuntimeResultCB(LanQueryRuntimeResultCB fn);
    /// Called for abnormal events; text1 and reserved3 of each are empty.
    void setLanQueryAbnormalResultCB(LanQueryAbnormalResultCB fn);
    /// Called for alarm logs.
    void setLanQueryAlarmResultCB(LanQueryAlarmResultCB fn);
    /// Called for processing stops.
    void setLanQueryProcessStopResultCB(LanQueryProcessStopResultCB fn);
    /// Called for shutdowns.
    void setLanQueryShutdownResultCB(LanQueryShutdownResultCB fn);
    /// Called for processing records of the second generation.
    void setLanQueryProcess2ResultCB(LanQueryProcess2ResultCB fn);
    /// Called for run-time records of the second generation.
    void setLanQueryRuntime2ResultCB(LanQueryRuntime2ResultCB fn);
    /// Called for abnormal events of the second generation; reserved3 is empty.
    void setLanQueryAbnormal2ResultCB(LanQueryAbnormal2ResultCB fn);
    /// Called for alarm records of the second generation.
    void setLanQueryAlarm2ResultCB(LanQueryAlarm2ResultCB fn);
    ///@}

    /// \name Machine data and statistics
    /// Machine data, processing records and statistics over a date range,
    /// and the app queries for the logs of several machines at once. The app
    /// queries travel with the flags reversed: the query under the reply
    /// flag, its data under the request flag; peers expect it so.
    ///@{

    /// Callback of setLanQueryMacDatasCB(): called for a machine-data query.
    using LanQueryMacDatasCB = void (*)(void* ctx, const QString& a, const QString& b);
    /// Callback of setLanQueryProcessStatisticResultCB(): called for processing statistics.
    using LanQueryProcessStatisticResultCB = void (*)(void* ctx, const QString& text,
                                                      const MapQueryStatistic& statistic);
    /// Callback of setLanQueryMacProcessCB(): called for a machine's processing records.
    using LanQueryMacProcessCB = void (*)(void* ctx, const QString& a, const QString& b,
                                          const QList<work_log>& logs);
    /// Callback of setLanQueryMacStatisticCB(): called for a statistics query.
    using LanQueryMacStatisticCB = void (*)(void* ctx, const QString& s1, const QString& s2,
                                            const QString& s3, const QString& s4);
    /// Callback of setLanQueryMacStatisticResultCB(): called for a statistics answer.
    using LanQueryMacStatisticResultCB = void (*)(
        void* ctx, const QString& start, const QString& end, const QStringList& names,
        const QMap<QString, int>& m1, const QMap<QString, int>& m2, const QMap<QString, int>& m3,
        const QMap<QString, int>& m4, const QMap<QString, int>& m5, const QMap<QString, int>& m6);
    /// Callback of setLanAppQueryProcessLogsCB(): called for an app query of processing logs.
    using LanAppQueryProcessLogsCB = void (*)(void* ctx, const QString& a, const QString& b, bool f,
                                              const QString& c, const QStringList& list);
    /// Callback of setLanAppQueryProcessLogsResultCB(): called for processing logs per key.
    using LanAppQueryProcessLogsResultCB = void (*)(void* ctx,
                                                    const QMap<QString, QList<work_log>>& logs);
    /// Callback of setLanAppQueryRuntimeLogsCB(): called for an app query of run-time logs (arrives
    /// with the reply flag).
    using LanAppQueryRuntimeLogsCB = void (*)(void* ctx, const QString& a, const QString& b,
                                              const QStringList& list);
    /// Callback of setLanAppQueryRuntimeLogsResultCB(): called for machine starts per key.
    using LanAppQueryRuntimeLogsResultCB = void (*)(void* ctx,
                                                    const QMap<QString, QList<boot_record>>& boots);
    /// Callback of setLanAppQueryAlarmLogsCB(): called for an app query of alarm logs (arrives with
    /// the reply flag).
    using LanAppQueryAlarmLogsCB = LanAppQueryRuntimeLogsCB;
    /// Callback of setLanAppQueryAlarmLogsResultCB(): called for alarms per key.
    using LanAppQueryAlarmLogsResultCB =
        void (*)(void* ctx, const QMap<QString, QList<alarm_log_info>>& alarms);

    /// Asks for a machine's data (there is no reply message).
    void lanQueryMacDatas(const QString& a, const QString& b);
    /// Sends processing statistics (with the request flag).
    void lanQueryProcessStatisticResponse(const QString& text, const MapQueryStatistic& statistic);
    /// Sends a machine's processing records: of each work_log text8, text1,
    /// text2, value4 and value3 are carried.
    void lanQueryMacProcess(const QString& a, const QString& b, const QList<work_log>& logs);
    /// Asks for statistics (four texts; typically the machine and the range).
    void lanQueryMacStatistic(const QString& s1, const QString& s2, const QString& s3,
                              const QString& s4);
    /// Answers a statistics query. `start` and `end` are dates as
    /// "yyyy-MM-dd". Per name of `names`: its values in m1 and m2. Per day
    /// from start to the day after end: its values in m3 and m4, keyed by
    /// the day as "yyyy-MM-dd". Then m5 and m6 whole. Absent values go out
    /// as 0. With an end before the start, the days sent are those from
    /// start up to end + 1 (none when end is two or more days before start);
    /// with an invalid date no day is sent.
    void lanQueryMacStatisticResult(const QString& start, const QString& end,
                                    const QStringList& names, const QMap<QString, int>& m1,
                                    const QMap<QString, int>& m2, const QMap<QString, int>& m3,
                                    const QMap<QString, int>& m4, const QMap<QString, int>& m5,
                                    const QMap<QString, int>& m6);
    /// Asks for processing logs of several machines (sent with the reply flag).
    void lanAppQueryProcessLogs(const QString& a, const QString& b, bool f, const QString& c,
                                const QStringList& list);
    /// Sends processing logs per key (with the request flag); of each
    /// work_log all fields but text8 are carried.
    void lanAppQueryProcessLogsResponse(const QMap<QString, QList<work_log>>& logs);
    /// Asks for run-time logs of several machines (sent with the reply flag).
    void lanAppQueryRuntimeLogs(const QString& a, const QString& b, const QStringList& list);
    /// Sends machine starts per key (with the request flag); reserved4 is not carried.
    void lanAppQueryRuntimeLogsResponse(const QMap<QString, QList<boot_record>>& boots);
    /// Asks for alarm logs of several machines (sent with the reply flag).
    void lanAppQueryAlarmLogs(const QString& a, const QString& b, const QStringList& list);
    /// Sends alarms per key (with the request flag).
    void lanAppQueryAlarmLogsResponse(const QMap<QString, QList<alarm_log_info>>& alarms);
    /// Called for a machine-data query.
    void setLanQueryMacDatasCB(LanQueryMacDatasCB fn);
    /// Called for processing statistics.
    void setLanQueryProcessStatisticResultCB(LanQueryProcessStatisticResultCB fn);
    /// Called for a machine's processing records; text5, value6 and value7
    /// of each are empty or 0.
    void setLanQueryMacProcessCB(LanQueryMacProcessCB fn);
    /// Called for a statistics query.
    void setLanQueryMacStatisticCB(LanQueryMacStatisticCB fn);
    /// Called for a statistics answer: m1 and m2 hold every name sent (0
    /// where the sender had none), m3 and m4 every day sent.
    void setLanQueryMacStatisticResultCB(LanQueryMacStatisticResultCB fn);
    /// Called for an app query of processing logs (arrives with the reply flag).
    void setLanAppQueryProcessLogsCB(LanAppQueryProcessLogsCB fn);
    /// Called for processing logs per key; text8 of each is empty.
    void setLanAppQueryProcessLogsResultCB(LanAppQueryProcessLogsResultCB fn);
    /// Called for an app query of run-time logs (arrives with the reply flag).
    void setLanAppQueryRuntimeLogsCB(LanAppQueryRuntimeLogsCB fn);
    /// Called for machine starts per key; reserved4 of each is 0.
    void setLanAppQueryRuntimeLogsResultCB(LanAppQueryRuntimeLogsResultCB fn);
    /// Called for an app query of alarm logs (arrives with the reply flag).
    void setLanAppQueryAlarmLogsCB(LanAppQueryAlarmLogsCB fn);
    /// Called for alarms per key.
    void setLanAppQueryAlarmLogsResultCB(LanAppQueryAlarmLogsResultCB fn);
    ///@}

    /// \name File prices
    /// The price table keyed by file name: loading it, adding one price or
    /// many, updating, deleting and querying. Prices in a price map travel
    /// as text with six significant digits (0.30000000000000004 arrives as
    /// 0.3); an unreadable price arrives as 0.
    ///@{

    /// Callback of setLanLoadFilePriceCB(): called for a request for the price table.
    using LanLoadFilePriceCB = void (*)(void* ctx);
    /// Callback of setLanLoadFilePriceResultCB(): called for the price table.
    using LanLoadFilePriceResultCB = void (*)(void* ctx, const QStringList& files,
                                              const QMap<QString, double>& prices);
    /// Callback of setLanAddFilePriceCB(): called for a request to add a price.
    using LanAddFilePriceCB = void (*)(void* ctx, const QString& file, const QString& price);
    /// Callback of setLanAddFilePriceResultCB(): called for an added-price answer.
    using LanAddFilePriceResultCB = void (*)(void* ctx, bool ok, const QString& file,
                                             const QString& price);
    /// Callback of setLanUpdateFilePriceCB(): called for a request to update a price.
    using LanUpdateFilePriceCB = void (*)(void* ctx, const QString& a, const QString& b,
                                          const QString& c);
    /// Callback of setLanUpdateFilePriceResultCB(): called for a price-update answer.
    using LanUpdateFilePriceResultCB = void (*)(void* ctx, bool ok, const QString& a,
                                                const QString& b, const QString& c);
    /// Callback of setLanDeleteFilePriceCB(): called for a request to delete prices.
    using LanDeleteFilePriceCB = void (*)(void* ctx, const QStringList& files);
    /// Callback of setLanDeleteFilePriceResultCB(): called for a price-deletion answer.
    using LanDeleteFilePriceResultCB = void (*)(void* ctx, bool ok, const QStringList& files);
    /// Callback of setLanQueryFilePriceInfoCB(): called for price information.
    using LanQueryFilePriceInfoCB = void (*)(void* ctx, const QString& text,
                                             const QList<QVariant>& rows);
    /// Callback of setLanQueryFilePriceCB(): called for a price query.
    using LanQueryFilePriceCB = void (*)(void* ctx, const QString& a, const QString& b,
                                         const QString& c, const QStringList& list);
    /// Callback of setLanQueryFilePriceResultCB(): called for a price query's answer.
    using LanQueryFilePriceResultCB = void (*)(void* ctx, const QString& text);
    /// Callback of setLanAddFilePricesCB(): called for a request to add many prices.
    using LanAddFilePricesCB = void (*)(void* ctx, const QMap<QString, double>& prices);
    /// Callback of setLanAddFilePricesResultCB(): called for an answer to an addition of many
    /// prices.
    using LanAddFilePricesResultCB = void (*)(void* ctx, bool ok,
                                              const QMap<QString, double>& prices);

    /// Asks for the price table (empty payload).
    void lanLoadFilePrice();
    /// Answers with a list of files and the prices.
    void lanLoadFilePriceResult(const QStringList& files, const QMap<QString, double>& prices);
    /// Asks to add a price (the price as text, carried as given).
    void lanAddFilePrice(const QString& file, const QString& price);
    /// Answers an added price.
    void lanAddFilePriceResult(bool ok, const QString& file, const QString& price);
    /// Asks to update a price (three texts, carried as given).
    void lanUpdateFilePrice(const QString& a, const QString& b, const QString& c);
    /// Answers a price update.
    void lanUpdateFilePriceResult(bool ok, const QString& a, const QString& b, const QString& c);
    /// Asks to delete the prices of files.
    void lanDeleteFilePrice(const QStringList& files);
    /// Answers a price deletion.
    void lanDeleteFilePriceResult(bool ok, const QStringList& files);
    /// Sends price information: a text and rows, each row sent as
    /// QVariant::toStringList(). A row count above 32767 (in 16 bits) sends
    /// no rows; a row of more than 32767 items sends none of its items.
    void lanQueryFilePriceInfo(const QString& text, const QList<QVariant>& rows);
    /// Asks for prices: three texts and a list.
    void lanQueryFilePrice(const QString& a, const QString& b, const QString& c,
                           const QStringList& list);
    /// Answers a price query with a text.
    void lanQueryFilePriceResult(const QString& text);
    /// Asks to add many prices.
    void lanAddFilePrices(const QMap<QString, double>& prices);
    /// Answers an addition of many prices.
    void lanAddFilePricesResult(bool ok, const QMap<QString, double>& prices);
    /// Called for a request for the price table.
    void setLanLoadFilePriceCB(LanLoadFilePriceCB fn);
    /// Called for the price table.
    void setLanLoadFilePriceResultCB(LanLoadFilePriceResultCB fn);
    /// Called for a request to add a price.
    void setLanAddFilePriceCB(LanAddFilePriceCB fn);
    /// Called for an added-price answer.
    void setLanAddFilePriceResultCB(LanAddFilePriceResultCB fn);
    /// Called for a request to update a price.
    void setLanUpdateFilePriceCB(LanUpdateFilePriceCB fn);
    /// Called for a price-update answer.
    void setLanUpdateFilePriceResultCB(LanUpdateFilePriceResultCB fn);
    /// Called for a request to delete prices.
    void setLanDeleteFilePriceCB(LanDeleteFilePriceCB fn);
    /// Called for a price-deletion answer.
    void setLanDeleteFilePriceResultCB(LanDeleteFilePriceResultCB fn);
    /// Called for price information; each row arrives as a QVariant holding
    /// a QStringList.
    void setLanQueryFilePriceInfoCB(LanQueryFilePriceInfoCB fn);
    /// Called for a price query.
    void setLanQueryFilePriceCB(LanQueryFilePriceCB fn);
    /// Called for a price query's answer.
    void setLanQueryFilePriceResultCB(LanQueryFilePriceResultCB fn);
    /// Called for a request to add many prices; a repeated file keeps its last price.
    void setLanAddFilePricesCB(LanAddFilePricesCB fn);
    /// Called for an answer to an addition of many prices.
    void setLanAddFilePricesResultCB(LanAddFilePricesResultCB fn);
    ///@}

private:
    KZProtocolResolverPrivate* d;
    friend class KZProtocolResolverPrivate;
};

#endif // KZRESOLVER_KZPROTOCOLRESOLVER_H
