// Reading and changing the Ethernet settings on the running system.
// Addresses are 32-bit values in network byte order; 0 means none or error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

uint32_t net_get_ifaddr(const char* ifname);
// An IPv4 address (network byte order) in dotted form.
std::string net_dotted(uint32_t addr);
// The address "eth0" has now, in dotted form.
std::string net_eth0_dotted();
int net_set_ifaddr(const char* ifname, uint32_t addr);
int net_get_mtu(const char* ifname);
int net_set_mtu(const char* ifname, int mtu);
uint32_t net_get_netmask(const char* ifname);
int net_set_netmask(const char* ifname, uint32_t mask);
int net_get_hwaddr(const char* ifname, unsigned char* mac);
int net_add_gateway(uint32_t gateway);
int net_del_gateway(uint32_t gateway);
int net_set_gateway(uint32_t gateway);
uint32_t net_get_gateway();
int net_set_dns(const char* name_server);
int net_set_dns1(const char* name_server);
int net_set_dns2(const char* first, const char* second);
uint32_t net_get_dns();
uint32_t net_get_dns1();
uint32_t net_get_dns2();
int net_enable_dhcpcd();
int net_disable_dhcpcd();
int net_set_mac(const char* mac_text);
int Check_Link_status(const char* ifname);
int net_any_link_up();
int net_mii_speed100(const char* ifname);
int net_check_port(unsigned short port);
int net_ip_in_use(uint32_t addr);
int net_parse_addr(char* text, unsigned char* out);
int net_ping(const char* addr_text, int timeout);
uint16_t net_icmp_checksum(const void* buffer, int length);
