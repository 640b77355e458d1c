dnl A stand-in for the platform's policy: what examples/device/sepolicy uses of it, and the rules of
dnl the platform that it could break. A policy for checkpolicy; device_files_test.sh fills in POLICY
dnl and CHECK.
dnl
define(`r_file_perms', `{ getattr open read ioctl lock map }')dnl
define(`r_dir_perms', `{ open getattr read search ioctl lock }')dnl
define(`w_file_perms', `{ open append write lock map }')dnl
define(`w_dir_perms', `{ open search write add_name remove_name lock }')dnl
define(`create_file_perms', `{ create rename setattr unlink r_file_perms w_file_perms }')dnl
define(`create_dir_perms', `{ create reparent rename rmdir setattr r_dir_perms w_dir_perms }')dnl
define(`binder_call', `allow $1 $2:binder { call transfer };
allow $2 $1:binder transfer;
allow $1 $2:fd use;')dnl
define(`binder_manager_use', `allow $1 $2:binder { call transfer };
allow $2 $1:binder { call transfer };
allow $2 $1:dir search;
allow $2 $1:file { read open map };
allow $2 $1:process getattr;')dnl
define(`vndbinder_use', `allow $1 vndbinder_device:chr_file { r_file_perms w_file_perms };
binder_manager_use($1, vndservicemanager)')dnl
define(`add_service', `allow $1 $2:service_manager { add find };
neverallow { domain -$1 } $2:service_manager add;')dnl
define(`hal_client_domain', `typeattribute $1 halclientdomain;
typeattribute $1 $2_client;')dnl
define(`init_daemon_domain', `allow init $1_exec:file { getattr open read execute map };
allow init $1:process { transition siginh rlimitinh };
allow $1 $1_exec:file { entrypoint open read execute getattr map };
type_transition init $1_exec:process $1;')dnl
class file class dir class chr_file class process class binder class fd
class service_manager class hwservice_manager
sid kernel
common all_files { append create entrypoint execute getattr ioctl link lock map open read rename setattr unlink write }
class file inherits all_files
class dir inherits all_files { add_name remove_name reparent rmdir search }
class chr_file inherits all_files
class process { execmem getattr rlimitinh siginh transition }
class binder { call transfer }
class fd { use }
class service_manager { add find }
class hwservice_manager { add find }
attribute domain; attribute coredomain; attribute exec_type; attribute file_type;
attribute vendor_file_type; attribute data_file_type; attribute core_data_file_type;
attribute vndservice_manager_type; attribute halclientdomain; attribute hal_keymaster_client;
type init, domain, coredomain; type vendor_init, domain; type vndservicemanager, domain;
type hwservicemanager, domain, coredomain; type hal_keymaster_default, domain;
type hal_keymaster_hwservice; type vndbinder_device; type my_client, domain;
type system_data_file, file_type, data_file_type, core_data_file_type;
type vendor_data_file, file_type, data_file_type;
allow domain vendor_data_file:dir { getattr search };
binder_manager_use(halclientdomain, hwservicemanager)
binder_call(hal_keymaster_client, hal_keymaster_default)
allow hal_keymaster_client hal_keymaster_hwservice:hwservice_manager find;
neverallow { domain -hal_keymaster_client } hal_keymaster_hwservice:hwservice_manager find;
neverallow { domain -coredomain } core_data_file_type:file { open create unlink };
neverallow domain { file_type -vendor_file_type }:file entrypoint;
neverallow { domain -init } vendor_file_type:file { write create unlink };
neverallow domain self:process execmem;
POLICY
CHECK
role r;
role r types domain;
user u roles { r object_r };
sid kernel u:object_r:init
