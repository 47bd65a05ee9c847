// Generated from protocol/*.table by protocol/kzgen: do not edit. After changing the
// table, refresh with: cmake --build <build dir> --target protocol_refresh
//
// The requests of KZClient, family by family: for each request that its message's reply
// answers, the struct of the reply's values and the method that sends the request. It is
// part of the class: kzclient.h includes it inside the class body.
#ifndef KZRESOLVER_IN_CLIENT_CLASS
#error "kzclientrequests.h belongs inside KZClient: include kzclient.h"
#endif
// Laid out as inside the class (a formatter run on this file alone would not know).
// clang-format off

    /// \name Users
    ///@{

    /// The values of the AddUser reply, as lanAddUserResult() carries them. Answers an added user
    /// with the record as stored (no success flag).
    struct AddUserReply
    {
        /// The reference server answers a refused user with an empty record.
        user_info user;
    };
    /// Asks to add a user to the group pair (lv1Group, lv2Group).
    ///
    /// Sends lanAddUser() (code 0x001A) once the client is ready and returns its reply, which
    /// finishes with AddUserReply when the server answers.
    KZReplyOf<AddUserReply>* addUser(const QString& name, const QString& text2,
                                     const QString& text3, const QString& lv1Group,
                                     const QString& lv2Group, bool flag);

    /// The values of the DeleteUser reply, as lanDeleteUserResponse() carries them. Answers a user
    /// deletion.
    struct DeleteUserReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `names` value.
        QStringList names;
    };
    /// Asks to delete users.
    ///
    /// Sends lanDeleteUser() (code 0x001B) once the client is ready and returns its reply, which
    /// finishes with DeleteUserReply when the server answers.
    KZReplyOf<DeleteUserReply>* deleteUser(const QStringList& names);

    /// The values of the UpdateClient reply, as lanUpdateClientResponse() carries them. Answers a
    /// client update.
    struct UpdateClientReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The account's name (the reference server's use, as for the fields below).
        QString s1;
        /// The account's second string (user_info::text2).
        QString s2;
        /// The new password, empty to keep it.
        QString s3;
        /// The first-level group.
        QString s4;
        /// The second-level group.
        QString s5;
        /// Not used by the reference server.
        QString s6;
        /// The account flag (user_info::flag).
        bool b1{};
        /// Not used by the reference server.
        bool b2{};
    };
    /// Asks to update a client account (six strings and two flags).
    ///
    /// Sends lanUpdateClient() (code 0x0017) once the client is ready and returns its reply, which
    /// finishes with UpdateClientReply when the server answers.
    KZReplyOf<UpdateClientReply>* updateClient(const QString& s1, const QString& s2,
                                               const QString& s3, const QString& s4,
                                               const QString& s5, const QString& s6, bool b1,
                                               bool b2);

    /// The values of the UpdateUserPermission reply, as lanUpdateUserPermissionResponse() carries
    /// them. Answers a permission change.
    struct UpdateUserPermissionReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `name` value.
        QString name;
        /// The reply's `permission` value.
        int permission{};
    };
    /// Asks to set a user's permission value.
    ///
    /// Sends lanUpdateUserPermission() (code 0x0018) once the client is ready and returns its
    /// reply, which finishes with UpdateUserPermissionReply when the server answers.
    KZReplyOf<UpdateUserPermissionReply>* updateUserPermission(const QString& name, int permission);

    /// The values of the UpdateUserGroupPermission reply, as lanUpdateUserGroupPermissionResponse()
    /// carries them. Answers a change of visible groups.
    struct UpdateUserGroupPermissionReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `name` value.
        QString name;
        /// The reply's `groups` value.
        QMap<QString, QStringList> groups;
    };
    /// Asks to set the groups a user may see (first-level name to its second-level names).
    ///
    /// Sends lanUpdateUserGroupPermission() (code 0x0019) once the client is ready and returns its
    /// reply, which finishes with UpdateUserGroupPermissionReply when the server answers.
    KZReplyOf<UpdateUserGroupPermissionReply>* updateUserGroupPermission(
        const QString& name, const QMap<QString, QStringList>& groups);
    ///@}

    /// \name Groups and ordering
    ///@{

    /// The values of the AddGroup reply, as lanAddGroupResponse() carries them. Acknowledges
    /// created groups (empty payload).
    struct AddGroupReply
    {
    };
    /// Asks to create groups: the first-level names in order, each with the second-level names that
    /// `lv2ByLv1` holds for it (none if it has no entry). Map entries for names not in the list are
    /// not sent.
    ///
    /// Sends lanAddGroup() (code 0x0010) once the client is ready and returns its reply, which
    /// finishes with AddGroupReply when the server answers.
    KZReplyOf<AddGroupReply>* addGroup(const QStringList& lv1Names,
                                       const QMap<QString, QStringList>& lv2ByLv1);

    /// The values of the SortItem reply, as lanSortItemResponse() carries them. Answers a
    /// reordering.
    struct SortItemReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The first-level group (the reference server's use).
        QString a;
        /// The second-level group.
        QString b;
        /// The reply's `items` value.
        QStringList items;
    };
    /// Asks to reorder the items of a scope (a, b).
    ///
    /// Sends lanSortItem() (code 0x0016) once the client is ready and returns its reply, which
    /// finishes with SortItemReply when the server answers.
    KZReplyOf<SortItemReply>* sortItem(const QString& a, const QString& b,
                                       const QStringList& items);

    /// The values of the MoveUserToGroup reply, as lanMoveUserToGroupResponse() carries them.
    /// Answers a user move.
    struct MoveUserToGroupReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `names` value.
        QStringList names;
        /// The reply's `lv1` value.
        QString lv1;
        /// The reply's `lv2` value.
        QString lv2;
    };
    /// Asks to move users to the group pair (lv1, lv2).
    ///
    /// Sends lanMoveUserToGroup() (code 0x0037) once the client is ready and returns its reply,
    /// which finishes with MoveUserToGroupReply when the server answers.
    KZReplyOf<MoveUserToGroupReply>* moveUserToGroup(const QStringList& names, const QString& lv1,
                                                     const QString& lv2);

    /// The values of the MoveMacToGroup reply, as lanMoveMacToGroupResponse() carries them. Answers
    /// a machine move.
    struct MoveMacToGroupReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `macs` value.
        QStringList macs;
        /// The reply's `lv1` value.
        QString lv1;
        /// The reply's `lv2` value.
        QString lv2;
    };
    /// Asks to move machines to the group pair (lv1, lv2).
    ///
    /// Sends lanMoveMacToGroup() (code 0x0038) once the client is ready and returns its reply,
    /// which finishes with MoveMacToGroupReply when the server answers.
    KZReplyOf<MoveMacToGroupReply>* moveMacToGroup(const QStringList& macs, const QString& lv1,
                                                   const QString& lv2);

    /// The values of the MoveOperatorToGroup reply, as lanMoveOperatorToGroupResponse() carries
    /// them. Answers an operator move.
    struct MoveOperatorToGroupReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `operators` value.
        QStringList operators;
        /// The reply's `lv1` value.
        QString lv1;
        /// The reply's `lv2` value.
        QString lv2;
    };
    /// Asks to move operators to the group pair (lv1, lv2).
    ///
    /// Sends lanMoveOperatorToGroup() (code 0x0039) once the client is ready and returns its reply,
    /// which finishes with MoveOperatorToGroupReply when the server answers.
    KZReplyOf<MoveOperatorToGroupReply>* moveOperatorToGroup(const QStringList& operators,
                                                             const QString& lv1,
                                                             const QString& lv2);
    ///@}

    /// \name Operators
    ///@{

    /// The values of the AddOperatorUser reply, as lanAddOperatorUserResponse() carries them.
    /// Answers an added operator.
    struct AddOperatorUserReply
    {
        /// Stands ahead of the two flags on the wire, unlike UpdateOperator's reply.
        bool ok{};
        /// The reply's `s1` value.
        QString s1;
        /// The reply's `s2` value.
        QString s2;
        /// The reply's `s3` value.
        QString s3;
        /// The reply's `s4` value.
        QString s4;
        /// The reply's `s5` value.
        QString s5;
        /// The reply's `b1` value.
        bool b1{};
        /// The reply's `b2` value.
        bool b2{};
    };
    /// Asks to add an operator (the five operator strings, name first).
    ///
    /// Sends lanAddOperatorUser() (code 0x001C) once the client is ready and returns its reply,
    /// which finishes with AddOperatorUserReply when the server answers.
    KZReplyOf<AddOperatorUserReply>* addOperatorUser(const QString& s1, const QString& s2,
                                                     const QString& s3, const QString& s4,
                                                     const QString& s5);

    /// The values of the AddOperatorUsers reply, as lanAddOperatorUsersResponse() carries them.
    /// Answers a bulk addition.
    struct AddOperatorUsersReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `rows` value.
        QList<QVariant> rows;
    };
    /// Asks to add operators in bulk: each row is a QVariantList whose first five items are sent as
    /// text (missing items as empty text).
    ///
    /// Sends lanAddOperatorUsers() (code 0x001D) once the client is ready and returns its reply,
    /// which finishes with AddOperatorUsersReply when the server answers.
    KZReplyOf<AddOperatorUsersReply>* addOperatorUsers(const QList<QVariant>& rows);

    /// The values of the UpdateOperator reply, as lanUpdateOperatorResponse() carries them. Answers
    /// an operator update.
    struct UpdateOperatorReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `s1` value.
        QString s1;
        /// The reply's `s2` value.
        QString s2;
        /// The reply's `s3` value.
        QString s3;
        /// The reply's `s4` value.
        QString s4;
        /// The reply's `s5` value.
        QString s5;
        /// Operator_user::flagA.
        bool b1{};
        /// Operator_user::flagB.
        bool b2{};
    };
    /// Asks to update an operator (five strings, two flags).
    ///
    /// Sends lanUpdateOperator() (code 0x001E) once the client is ready and returns its reply,
    /// which finishes with UpdateOperatorReply when the server answers.
    KZReplyOf<UpdateOperatorReply>* updateOperator(const QString& s1, const QString& s2,
                                                   const QString& s3, const QString& s4,
                                                   const QString& s5, bool b1, bool b2);

    /// The values of the DeleteOperatorUser reply, as lanDeleteOperatorUserResponse() carries them.
    /// Answers an operator deletion.
    struct DeleteOperatorUserReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `names` value.
        QStringList names;
    };
    /// Asks to delete operators.
    ///
    /// Sends lanDeleteOperatorUser() (code 0x0020) once the client is ready and returns its reply,
    /// which finishes with DeleteOperatorUserReply when the server answers.
    KZReplyOf<DeleteOperatorUserReply>* deleteOperatorUser(const QStringList& names);
    ///@}

    /// \name Permissions
    ///@{

    /// The values of the QueryPermission reply, as lanQueryPermissionResult() carries them. Answers
    /// a permission query.
    struct QueryPermissionReply
    {
        /// (user, first-level group or machine, second-level group) and the power word, in the
        /// reference server.
        QList<mac_user_power> entries;
    };
    /// Asks for the permission entries of `keys`.
    ///
    /// Sends lanQueryPermission() (code 0x1010) once the client is ready and returns its reply,
    /// which finishes with QueryPermissionReply when the server answers.
    KZReplyOf<QueryPermissionReply>* queryPermission(const QStringList& keys);
    ///@}

    /// \name Machine registry
    ///@{

    /// The values of the MacInfo reply, as lanMacInfoResponse() carries them. Acknowledges a
    /// machine list (empty payload).
    struct MacInfoReply
    {
    };
    /// Sends the machine list grouped by (lv1Group, lv2Group) in order of first appearance; a
    /// repeated mac within one group pair is sent once (the first record wins).
    ///
    /// Sends lanMacInfo() (code 0x0031) once the client is ready and returns its reply, which
    /// finishes with MacInfoReply when the server answers.
    KZReplyOf<MacInfoReply>* macInfo(const QList<mac_info>& macs);

    /// The values of the DeleteMac reply, as lanDeleteMacResponse() carries them. Answers a machine
    /// deletion.
    struct DeleteMacReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `macs` value.
        QStringList macs;
    };
    /// Asks to delete machines.
    ///
    /// Sends lanDeleteMac() (code 0x0403) once the client is ready and returns its reply, which
    /// finishes with DeleteMacReply when the server answers.
    KZReplyOf<DeleteMacReply>* deleteMac(const QStringList& macs);
    ///@}

    /// \name Machine status reports
    ///@{

    /// The values of the MacWorkLog reply, as lanMacWorkLogResponse() carries them. Acknowledges a
    /// work log (empty payload).
    struct MacWorkLogReply
    {
    };
    /// Sends a work log with its per-process figures and its counts. The figures travel as text
    /// with six significant digits. Sends nothing when the log's 16-bit count is 0 (an empty log,
    /// or 65536 entries); of each entry value6 and value7 are not carried.
    ///
    /// Sends lanMacWorkLog() (code 0x0407) once the client is ready and returns its reply, which
    /// finishes with MacWorkLogReply when the server answers.
    KZReplyOf<MacWorkLogReply>* macWorkLog(const QString& a, const QString& b, const QString& c,
                                           const QList<work_log>& logs,
                                           const QMap<QString, int>& counts,
                                           const QMap<QString, oee_process_data>& processes);
    ///@}

    /// \name Remote panel
    ///@{

    /// The values of the RemoteSetMode reply, as lanRemoteSetModeResponse() carries them. Answers a
    /// mode switch (the success byte leads this payload).
    struct RemoteSetModeReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `mac` value.
        QString mac;
        /// The reply's `valueA` value.
        int valueA{};
        /// The reply's `valueB` value.
        int valueB{};
        /// The reply's `valueC` value.
        int valueC{};
    };
    /// Switches a machine's panel mode.
    ///
    /// Sends lanRemoteSetMode() (code 0x0601) once the client is ready and returns its reply, which
    /// finishes with RemoteSetModeReply when the server answers.
    KZReplyOf<RemoteSetModeReply>* remoteSetMode(const QString& mac, int mode);
    ///@}

    /// \name Production plans
    ///@{

    /// The values of the InitPlan reply, as lanInitPlanResponse() carries them. Answers with the
    /// plan set: a list of names and the plan rows.
    struct InitPlanReply
    {
        /// The reply's `names` value.
        QStringList names;
        /// Date, file, machine, quantity, n and author in the reference server.
        QList<QVariant> plans;
    };
    /// Asks for the plan set (empty payload).
    ///
    /// Sends lanInitPlan() (code 0x1020) once the client is ready and returns its reply, which
    /// finishes with InitPlanReply when the server answers.
    KZReplyOf<InitPlanReply>* initPlan();

    /// The values of the GetDatePlan reply, as lanGetDatePlanResponse() carries them. Answers with
    /// the plan rows of a date.
    struct GetDatePlanReply
    {
        /// The reply's `date` value.
        QString date;
        /// The reply's `plans` value.
        QList<QVariant> plans;
    };
    /// Asks for the plans of a date (free text).
    ///
    /// Sends lanGetDatePlan() (code 0x1024) once the client is ready and returns its reply, which
    /// finishes with GetDatePlanReply when the server answers.
    KZReplyOf<GetDatePlanReply>* getDatePlan(const QString& date);
    ///@}

    /// \name Workshop plans
    ///@{

    /// The values of the InitWorkshopData reply, as lanInitWorkshopDataResponse() carries them.
    /// Answers with the workshop-data rows. Every row is sent, but the count travels cut to 16
    /// bits.
    struct InitWorkshopDataReply
    {
        /// Workshop, name, date, note, n, total quantity, machine count and the quantities by
        /// machine in the reference server.
        QList<QVariant> rows;
    };
    /// Asks for the workshop data set (empty payload).
    ///
    /// Sends lanInitWorkshopData() (code 0x1025) once the client is ready and returns its reply,
    /// which finishes with InitWorkshopDataReply when the server answers.
    KZReplyOf<InitWorkshopDataReply>* initWorkshopData();

    /// The values of the WorkshopQueryPlan reply, as lanWorkshopQueryPlanResult() carries them.
    /// Answers with the query-plan rows of a key. A list of 32768 rows or more is cut: only (size
    /// mod 65536) rows are sent, none when that is 32768 or more.
    struct WorkshopQueryPlanReply
    {
        /// The workshop (the reference server's use).
        QString key;
        /// Name, date, machine, quantity and n, one row per machine of a plan, in the reference
        /// server.
        QList<QVariant> rows;
    };
    /// Asks for the plans of a key.
    ///
    /// Sends lanWorkshopQueryPlan() (code 0x1026) once the client is ready and returns its reply,
    /// which finishes with WorkshopQueryPlanReply when the server answers.
    KZReplyOf<WorkshopQueryPlanReply>* workshopQueryPlan(const QString& key);
    ///@}

    /// \name Planned stops and work time
    ///@{

    /// The values of the AddPlanShutItem reply, as lanAddPlanShutItemResponse() carries them.
    /// Answers an add with the two status flags and a result number, echoing the request.
    struct AddPlanShutItemReply
    {
        /// The reply's `ok1` value.
        bool ok1{};
        /// The reply's `ok2` value.
        bool ok2{};
        /// The new set's identifier in the reference server.
        int n{};
        /// The date (the reference server's use).
        QString a;
        /// A text of the set.
        QString b;
        /// The reply's `stops` value.
        KZProtocolResolver::StopMap stops;
        /// The reply's `names` value.
        QStringList names;
    };
    /// Adds a set of planned stops with its names.
    ///
    /// Sends lanAddPlanShutItem() (code 0x0411) once the client is ready and returns its reply,
    /// which finishes with AddPlanShutItemReply when the server answers.
    KZReplyOf<AddPlanShutItemReply>* addPlanShutItem(const QString& a, const QString& b,
                                                     const KZProtocolResolver::StopMap& stops,
                                                     const QStringList& names);

    /// The values of the EditPlanShutItem reply, as lanEditPlanShutItemResponse() carries them.
    /// Answers an edit with the two status flags and a result number, echoing the request.
    struct EditPlanShutItemReply
    {
        /// The reply's `ok1` value.
        bool ok1{};
        /// The reply's `ok2` value.
        bool ok2{};
        /// The reply's `n` value.
        int n{};
        /// The set's identifier (the reference server's use).
        QString a;
        /// The reply's `b` value.
        QString b;
        /// The reply's `c` value.
        QString c;
        /// The reply's `stops` value.
        KZProtocolResolver::StopMap stops;
        /// The reply's `names` value.
        QStringList names;
    };
    /// Edits a set of planned stops.
    ///
    /// Sends lanEditPlanShutItem() (code 0x0412) once the client is ready and returns its reply,
    /// which finishes with EditPlanShutItemReply when the server answers.
    KZReplyOf<EditPlanShutItemReply>* editPlanShutItem(const QString& a, const QString& b,
                                                       const QString& c,
                                                       const KZProtocolResolver::StopMap& stops,
                                                       const QStringList& names);

    /// The values of the DelPlanShutItem reply, as lanDelPlanShutItemResponse() carries them.
    /// Answers a delete by identifier: the status flags and a result number.
    struct DelPlanShutItemReply
    {
        /// The reply's `ok1` value.
        bool ok1{};
        /// The reply's `ok2` value.
        bool ok2{};
        /// The reply's `n` value.
        int n{};
    };
    /// Deletes a set of planned stops by its identifier.
    ///
    /// Sends lanDelPlanShutItem() (code 0x0413) once the client is ready and returns its reply,
    /// which finishes with DelPlanShutItemReply when the server answers.
    KZReplyOf<DelPlanShutItemReply>* delPlanShutItem(const QString& id);

    /// The values of the DelPlanShutByDate reply, as lanDelPlanShutByDateResponse() carries them.
    /// Answers a delete by date.
    struct DelPlanShutByDateReply
    {
        /// The reply's `ok1` value.
        bool ok1{};
        /// The reply's `ok2` value.
        bool ok2{};
        /// The reply's `date` value.
        QString date;
    };
    /// Deletes the planned stops of a date.
    ///
    /// Sends lanDelPlanShutByDate() (code 0x0414) once the client is ready and returns its reply,
    /// which finishes with DelPlanShutByDateReply when the server answers.
    KZReplyOf<DelPlanShutByDateReply>* delPlanShutByDate(const QString& date);

    /// The values of the EditPlanWorkTime reply, as lanEditPlanWorkTimeResponse() carries them.
    /// Answers a work-time edit.
    struct EditPlanWorkTimeReply
    {
        /// The reply's `ok1` value.
        bool ok1{};
        /// The reply's `ok2` value.
        bool ok2{};
        /// The reply's `date` value.
        QString date;
        /// The reply's `times` value.
        QMap<int, oee_worktime_item> times;
    };
    /// Sets the work-time spans of a date, by number.
    ///
    /// Sends lanEditPlanWorkTime() (code 0x0415) once the client is ready and returns its reply,
    /// which finishes with EditPlanWorkTimeReply when the server answers.
    KZReplyOf<EditPlanWorkTimeReply>* editPlanWorkTime(const QString& date,
                                                       const QMap<int, oee_worktime_item>& times);

    /// The values of the DelPlanWorkTime reply, as lanDelPlanWorkTimeResponse() carries them.
    /// Answers a work-time delete.
    struct DelPlanWorkTimeReply
    {
        /// The reply's `ok1` value.
        bool ok1{};
        /// The reply's `ok2` value.
        bool ok2{};
        /// The reply's `date` value.
        QString date;
    };
    /// Deletes the work time of a date.
    ///
    /// Sends lanDelPlanWorkTime() (code 0x0416) once the client is ready and returns its reply,
    /// which finishes with DelPlanWorkTimeReply when the server answers.
    KZReplyOf<DelPlanWorkTimeReply>* delPlanWorkTime(const QString& date);

    /// The values of the EditPlanOutShutItem reply, as lanEditPlanOutShutItemResponse() carries
    /// them. Answers an out-of-plan stop edit (the map is echoed, `n` is not).
    struct EditPlanOutShutItemReply
    {
        /// The reply's `ok1` value.
        bool ok1{};
        /// The reply's `ok2` value.
        bool ok2{};
        /// The reply's `stops` value.
        QMap<int, QString> stops;
    };
    /// Sets the stops outside the plan (text by number); `n` travels after the map.
    ///
    /// Sends lanEditPlanOutShutItem() (code 0x0417) once the client is ready and returns its reply,
    /// which finishes with EditPlanOutShutItemReply when the server answers.
    KZReplyOf<EditPlanOutShutItemReply>* editPlanOutShutItem(int n,
                                                             const QMap<int, QString>& stops);
    ///@}

    /// \name OEE data
    ///@{

    /// The values of the LoadOEEData reply, as lanLoadOEEDataResult() carries them. Answers with
    /// the request's fields and the OEE data by key.
    struct LoadOEEDataReply
    {
        /// The reply's `keys` value.
        QStringList keys;
        /// The reply's `a` value.
        QString a;
        /// The reply's `b` value.
        QString b;
        /// The reply's `n` value.
        int n{};
        /// The reply's `data` value.
        QMap<QString, oee_date_data> data;
    };
    /// Asks for the OEE data of `keys` (machines or dates) over a span. Only the low 16 bits of `n`
    /// travel.
    ///
    /// Sends lanLoadOEEData() (code 0x0418) once the client is ready and returns its reply, which
    /// finishes with LoadOEEDataReply when the server answers.
    KZReplyOf<LoadOEEDataReply>* loadOEEData(const QStringList& keys, const QString& a,
                                             const QString& b, int n);

    /// The values of the QueryDateOEEData reply, as lanQueryDateOEEDataResult() carries them.
    /// Answers with figure rows and two breakdown lists.
    struct QueryDateOEEDataReply
    {
        /// The reply's `n` value.
        int n{};
        /// One row per day in the reference server: the date, three empty texts, the planned
        /// quantity, the planned hours and four figures it does not measure (0).
        QList<QVariant> figures;
        /// The reply's `breakdownA` value.
        QList<QVariant> breakdownA;
        /// The reply's `breakdownB` value.
        QList<QVariant> breakdownB;
    };
    /// Asks for the OEE figures from `from` to `to` (sent as "yyyy-MM-dd"; an invalid date as empty
    /// text).
    ///
    /// Sends lanQueryDateOEEData() (code 0x041A) once the client is ready and returns its reply,
    /// which finishes with QueryDateOEEDataReply when the server answers.
    KZReplyOf<QueryDateOEEDataReply>* queryDateOEEData(const QDate& from, const QDate& to, int n);
    ///@}

    /// \name Machine file operations
    ///@{

    /// The values of the MacFiles reply, as lanMacFilesResponse() carries them. Answers a file
    /// listing. Only the low 16 bits of `value` are sent.
    struct MacFilesReply
    {
        /// The reply's `path` value.
        QString path;
        /// The reply's `value` value.
        int value{};
        /// The reply's `files` value.
        QStringList files;
    };
    /// Asks for the files of a machine (most likely: a machine, a directory and what to list). Only
    /// the low byte of `mode` is sent.
    ///
    /// Sends lanMacFiles() (code 0x0500) once the client is ready and returns its reply, which
    /// finishes with MacFilesReply when the server answers.
    KZReplyOf<MacFilesReply>* macFiles(const QString& mac, const QString& path, int mode);

    /// The values of the MacRenameFile reply, as lanMacRenameFileResponse() carries them. Answers a
    /// rename.
    struct MacRenameFileReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
    };
    /// Asks to rename a file of a machine.
    ///
    /// Sends lanMacRenameFile() (code 0x0501) once the client is ready and returns its reply, which
    /// finishes with MacRenameFileReply when the server answers.
    KZReplyOf<MacRenameFileReply>* macRenameFile(const QString& mac, const QString& from,
                                                 const QString& to);

    /// The values of the MacExecuteFile reply, as lanMacExecuteFileResponse() carries them. Answers
    /// an execute request.
    struct MacExecuteFileReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
    };
    /// Asks a machine to execute (start working) a file.
    ///
    /// Sends lanMacExecuteFile() (code 0x0502) once the client is ready and returns its reply,
    /// which finishes with MacExecuteFileReply when the server answers.
    KZReplyOf<MacExecuteFileReply>* macExecuteFile(const QString& mac, const QString& file);

    /// The values of the MacDeleteFile reply, as lanMacDeleteFileResponse() carries them. Answers a
    /// deletion.
    struct MacDeleteFileReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
    };
    /// Asks to delete files of a machine.
    ///
    /// Sends lanMacDeleteFile() (code 0x0503) once the client is ready and returns its reply, which
    /// finishes with MacDeleteFileReply when the server answers.
    KZReplyOf<MacDeleteFileReply>* macDeleteFile(const QString& mac, const QStringList& files);
    ///@}

    /// \name File transfer tasks
    ///@{

    /// The values of the MacTsfFileAddTask reply, as lanMacTsfFileAddTaskUi() carries them. Answers
    /// an announced task with its description (the reply-flag form of AddTask, with other fields).
    struct MacTsfFileAddTaskReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The machine.
        QString a;
        /// The task's name (request); the file's name (reply).
        QString b;
        /// The task number.
        int n{};
        /// The folder.
        QString c;
        /// "queued", or why the task is refused.
        QString d;
        /// The task's name.
        QString e;
    };
    /// Announces a transfer task (texts and list most likely name the machine, the task and its
    /// files).
    ///
    /// Sends lanMacTsfFileAddTask() (code 0x0507) once the client is ready and returns its reply,
    /// which finishes with MacTsfFileAddTaskReply when the server answers.
    KZReplyOf<MacTsfFileAddTaskReply>* macTsfFileAddTask(bool b1, const QString& a,
                                                         const QString& b, const QString& c,
                                                         bool b2, const QStringList& list);

    /// The values of the MacTsfFileBegin reply, as lanMacTsfFileBeginResponse() carries them.
    /// Answers TaskBegin (under a code of its own).
    struct MacTsfFileBeginReply
    {
        /// The task (the reference server's use).
        int n1{};
        /// 0 when ready, 1 when refused.
        int n2{};
        /// The chunk size to use.
        int n3{};
    };
    /// Opens one transfer: an integer and a 16-byte block.
    ///
    /// Sends lanMacTsfFileTaskBegin() (code 0x0509) once the client is ready and returns its reply,
    /// which finishes with MacTsfFileBeginReply when the server answers. The server answers it with
    /// a MacTsfFileBegin reply (code 0x050A), matched to it among the requests that reply answers.
    KZReplyOf<MacTsfFileBeginReply>* macTsfFileTaskBegin(int n, const QByteArray& block);

    /// The values of the MacTsfFileContent reply, as lanMacTsfFileContentResponse() carries them.
    /// Acknowledges one chunk.
    struct MacTsfFileContentReply
    {
        /// The chunk's number.
        int n1{};
        /// The bytes received so far, or -1 to have the chunk sent again.
        int n2{};
    };
    /// Sends one chunk: three integers, the chunk's length `len`, a 16-byte block and the data. The
    /// whole of `data` is sent and the receiver takes `len` bytes, so `len` must be `data.size()`.
    ///
    /// Sends lanMacTsfFileContent() (code 0x050B) once the client is ready and returns its reply,
    /// which finishes with MacTsfFileContentReply when the server answers.
    KZReplyOf<MacTsfFileContentReply>* macTsfFileContent(int p, int q, int r, int len,
                                                         const QByteArray& block,
                                                         const QByteArray& data);
    ///@}

    /// \name Shared files
    ///@{

    /// The values of the LoadSharedFiles reply, as lanLoadSharedFilesResponse() carries them.
    /// Answers with the two lists of shared files.
    struct LoadSharedFilesReply
    {
        /// The reply's `path` value.
        QString path;
        /// The names in the shared folder (the reference server's use).
        QStringList first;
        /// The files kept for machines, as machine/name.
        QStringList second;
    };
    /// Asks for the shared files. Only the low byte of `kind` is sent, after the text.
    ///
    /// Sends lanLoadSharedFiles() (code 0x0504) once the client is ready and returns its reply,
    /// which finishes with LoadSharedFilesReply when the server answers.
    KZReplyOf<LoadSharedFilesReply>* loadSharedFiles(int kind, const QString& path);

    /// The values of the AppLoadSharedFiles reply, as lanAppLoadSharedFilesResult() carries them.
    /// Answers an app client; the text travels ahead of the lists.
    struct AppLoadSharedFilesReply
    {
        /// The reply's `first` value.
        QStringList first;
        /// The reply's `second` value.
        QStringList second;
        /// The reply's `path` value.
        QString path;
    };
    /// Asks for the shared files, for an app client.
    ///
    /// Sends lanAppLoadSharedFiles() (code 0x0801) once the client is ready and returns its reply,
    /// which finishes with AppLoadSharedFilesReply when the server answers.
    KZReplyOf<AppLoadSharedFilesReply>* appLoadSharedFiles(const QString& path);
    ///@}

    /// \name Log queries
    ///@{

    /// The values of the QueryLog reply, as lanQueryLogResponse() carries them. Answers a log query
    /// with a text.
    struct QueryLogReply
    {
        /// The machine, empty for all (request); "done" or "refused" (reply), in the reference
        /// server.
        QString text;
    };
    /// Asks for logs: three texts, a number, four flags and a list.
    ///
    /// Sends lanQueryLog() (code 0x0709) once the client is ready and returns its reply, which
    /// finishes with QueryLogReply when the server answers.
    KZReplyOf<QueryLogReply>* queryLog(const QString& a, int k, const QString& b, const QString& c,
                                       bool f1, bool f2, bool f3, bool f4, const QStringList& list);

    /// The values of the QueryAlarm2 reply, as lanQueryAlarm2Result() carries them. Sends alarm
    /// records of the second generation.
    struct QueryAlarm2Reply
    {
        /// The machine (the reference server's use).
        QString text;
        /// Per event: the kind, the machine, the date, the time, the text, the user and its number
        /// as the figure, in the reference server.
        QList<kz_log_alarm_info> records;
    };
    /// Asks for logs by filter: a flag, three texts and two lists.
    ///
    /// Sends lanQueryLogsByFilter() (code 0x0702) once the client is ready and returns its reply,
    /// which finishes with QueryAlarm2Reply when the server answers. The server answers it with a
    /// QueryAlarm2 reply (code 0x0710), matched to it among the requests that reply answers.
    KZReplyOf<QueryAlarm2Reply>* queryLogsByFilter(bool f, const QString& a, const QString& b,
                                                   const QString& c, const QStringList& list1,
                                                   const QStringList& list2);

    /// Asks for logs of the second generation: three texts and a list.
    ///
    /// Sends lanQueryLog2() (code 0x070C) once the client is ready and returns its reply, which
    /// finishes with QueryAlarm2Reply when the server answers. The server answers it with a
    /// QueryAlarm2 reply (code 0x0710), matched to it among the requests that reply answers.
    KZReplyOf<QueryAlarm2Reply>* queryLog2(const QString& a, const QString& b, const QString& c,
                                           const QStringList& list);
    ///@}

    /// \name Machine data and statistics
    ///@{

    /// The values of the QueryMacStatistic reply, as lanQueryMacStatisticResult() carries them.
    /// Answers a statistics query. `start` and `end` are dates as "yyyy-MM-dd". Per name of
    /// `names`: its values in m1 and m2. Per day from start to the day after end: its values in m3
    /// and m4, keyed by the day as "yyyy-MM-dd". Then m5 and m6 whole. Absent values go out as 0.
    /// With an end before the start, the days sent are those from start up to end + 1 (none when
    /// end is two or more days before start); with an invalid date no day is sent.
    struct QueryMacStatisticReply
    {
        /// The reply's `start` value.
        QString start;
        /// The reply's `end` value.
        QString end;
        /// The reply's `names` value.
        QStringList names;
        /// The reply's `m1` value.
        QMap<QString, int> m1;
        /// The reply's `m2` value.
        QMap<QString, int> m2;
        /// The reply's `m3` value.
        QMap<QString, int> m3;
        /// The reply's `m4` value.
        QMap<QString, int> m4;
        /// The reply's `m5` value.
        QMap<QString, int> m5;
        /// The reply's `m6` value.
        QMap<QString, int> m6;
    };
    /// Asks for statistics (four texts; typically the machine and the range).
    ///
    /// Sends lanQueryMacStatistic() (code 0x070B) once the client is ready and returns its reply,
    /// which finishes with QueryMacStatisticReply when the server answers.
    KZReplyOf<QueryMacStatisticReply>* queryMacStatistic(const QString& s1, const QString& s2,
                                                         const QString& s3, const QString& s4);

    /// The values of the AppQueryProcessLogs reply, as lanAppQueryProcessLogsResponse() carries
    /// them. Sends processing logs per key (with the request flag); of each work_log all fields but
    /// text8 are carried.
    struct AppQueryProcessLogsReply
    {
        /// The reply's `logs` value.
        QMap<QString, QList<work_log>> logs;
    };
    /// Asks for processing logs of several machines (sent with the reply flag).
    ///
    /// Sends lanAppQueryProcessLogs() (code 0x0802) once the client is ready and returns its reply,
    /// which finishes with AppQueryProcessLogsReply when the server answers.
    KZReplyOf<AppQueryProcessLogsReply>* appQueryProcessLogs(const QString& a, const QString& b,
                                                             bool f, const QString& c,
                                                             const QStringList& list);

    /// The values of the AppQueryRuntimeLogs reply, as lanAppQueryRuntimeLogsResponse() carries
    /// them. Sends machine starts per key (with the request flag); reserved4 is not carried.
    struct AppQueryRuntimeLogsReply
    {
        /// The reply's `boots` value.
        QMap<QString, QList<boot_record>> boots;
    };
    /// Asks for run-time logs of several machines (sent with the reply flag).
    ///
    /// Sends lanAppQueryRuntimeLogs() (code 0x0803) once the client is ready and returns its reply,
    /// which finishes with AppQueryRuntimeLogsReply when the server answers.
    KZReplyOf<AppQueryRuntimeLogsReply>* appQueryRuntimeLogs(const QString& a, const QString& b,
                                                             const QStringList& list);

    /// The values of the AppQueryAlarmLogs reply, as lanAppQueryAlarmLogsResponse() carries them.
    /// Sends alarms per key (with the request flag).
    struct AppQueryAlarmLogsReply
    {
        /// The reply's `alarms` value.
        QMap<QString, QList<alarm_log_info>> alarms;
    };
    /// Asks for alarm logs of several machines (sent with the reply flag).
    ///
    /// Sends lanAppQueryAlarmLogs() (code 0x0804) once the client is ready and returns its reply,
    /// which finishes with AppQueryAlarmLogsReply when the server answers.
    KZReplyOf<AppQueryAlarmLogsReply>* appQueryAlarmLogs(const QString& a, const QString& b,
                                                         const QStringList& list);
    ///@}

    /// \name File prices
    ///@{

    /// The values of the LoadFilePrice reply, as lanLoadFilePriceResult() carries them. Answers
    /// with a list of files and the prices.
    struct LoadFilePriceReply
    {
        /// The reply's `files` value.
        QStringList files;
        /// The reply's `prices` value.
        QMap<QString, double> prices;
    };
    /// Asks for the price table (empty payload).
    ///
    /// Sends lanLoadFilePrice() (code 0x0807) once the client is ready and returns its reply, which
    /// finishes with LoadFilePriceReply when the server answers.
    KZReplyOf<LoadFilePriceReply>* loadFilePrice();

    /// The values of the AddFilePrice reply, as lanAddFilePriceResult() carries them. Answers an
    /// added price.
    struct AddFilePriceReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `file` value.
        QString file;
        /// The reply's `price` value.
        QString price;
    };
    /// Asks to add a price (the price as text, carried as given).
    ///
    /// Sends lanAddFilePrice() (code 0x0808) once the client is ready and returns its reply, which
    /// finishes with AddFilePriceReply when the server answers.
    KZReplyOf<AddFilePriceReply>* addFilePrice(const QString& file, const QString& price);

    /// The values of the UpdateFilePrice reply, as lanUpdateFilePriceResult() carries them. Answers
    /// a price update.
    struct UpdateFilePriceReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `a` value.
        QString a;
        /// The reply's `b` value.
        QString b;
        /// The reply's `c` value.
        QString c;
    };
    /// Asks to update a price (three texts, carried as given).
    ///
    /// Sends lanUpdateFilePrice() (code 0x0809) once the client is ready and returns its reply,
    /// which finishes with UpdateFilePriceReply when the server answers.
    KZReplyOf<UpdateFilePriceReply>* updateFilePrice(const QString& a, const QString& b,
                                                     const QString& c);

    /// The values of the DeleteFilePrice reply, as lanDeleteFilePriceResult() carries them. Answers
    /// a price deletion.
    struct DeleteFilePriceReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `files` value.
        QStringList files;
    };
    /// Asks to delete the prices of files.
    ///
    /// Sends lanDeleteFilePrice() (code 0x080A) once the client is ready and returns its reply,
    /// which finishes with DeleteFilePriceReply when the server answers.
    KZReplyOf<DeleteFilePriceReply>* deleteFilePrice(const QStringList& files);

    /// The values of the QueryFilePrice reply, as lanQueryFilePriceResult() carries them. Answers a
    /// price query with a text.
    struct QueryFilePriceReply
    {
        /// The reply's `text` value.
        QString text;
    };
    /// Asks for prices: three texts and a list.
    ///
    /// Sends lanQueryFilePrice() (code 0x080C) once the client is ready and returns its reply,
    /// which finishes with QueryFilePriceReply when the server answers.
    KZReplyOf<QueryFilePriceReply>* queryFilePrice(const QString& a, const QString& b,
                                                   const QString& c, const QStringList& list);

    /// The values of the AddFilePrices reply, as lanAddFilePricesResult() carries them. Answers an
    /// addition of many prices.
    struct AddFilePricesReply
    {
        /// Whether the server did what was asked (the reply's success flag).
        bool ok{};
        /// The reply's `prices` value.
        QMap<QString, double> prices;
    };
    /// Asks to add many prices.
    ///
    /// Sends lanAddFilePrices() (code 0x080D) once the client is ready and returns its reply, which
    /// finishes with AddFilePricesReply when the server answers.
    KZReplyOf<AddFilePricesReply>* addFilePrices(const QMap<QString, double>& prices);
    ///@}
// clang-format on
